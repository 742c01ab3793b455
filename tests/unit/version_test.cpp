// Version queries and the rule about plug-ins' versions.
#include "rv_plugins.h"

#include <gtest/gtest.h>

TEST(Versions, are_written_into_the_four_buffers)
{
    char arch[2] = "x", major[2] = "x", minor[2] = "x", fix[2] = "x";
    EXPECT_STREQ(RvGetVersion(arch, major, minor, fix), "3.3.6.0");
    EXPECT_STREQ(arch, "3");
    EXPECT_STREQ(major, "3");
    EXPECT_STREQ(minor, "6");
    EXPECT_STREQ(fix, "0");
}

TEST(Versions, are_only_returned_without_buffers)
{
    EXPECT_STREQ(RvGetVersion(nullptr, nullptr, nullptr, nullptr), "3.3.6.0");
}

TEST(Versions, skip_the_buffers_that_are_null)
{
    char minor[2] = "x";
    EXPECT_STREQ(RvGetVersion(nullptr, nullptr, minor, nullptr), RV_VERSION);
    EXPECT_STREQ(minor, "6");
}

TEST(Versions, come_with_the_compile_options_of_the_interface)
{
    EXPECT_STREQ(RvGetCompileOptions(),
                 "windows 64-bit icc oiio sse (build date: May 18 2011 12:57:19)");
}

TEST(Versions, info_is_product_version_and_compile_options)
{
    EXPECT_EQ(RvGetVersionInfo(), std::string("Ruvell 3.3.6.0 ") + RvGetCompileOptions());
}

TEST(Versions, texts_keep_their_address)
{
    EXPECT_EQ(RvGetVersionInfo(), RvGetVersionInfo());
    EXPECT_EQ(RvGetCompileOptions(), RvGetCompileOptions());
}

TEST(Versions, of_plug_ins_are_accepted_up_to_this_minor_version)
{
    static const struct {
        const char *arch, *major, *minor;
        bool accepted;
    } cases[] = {
        { "3", "3", "6", true },
        { "3", "3", "0", true },
        { "3", "3", "5", true },
        { "3", "3", "7", false },
        { "3", "3", "10", false },
        { "3", "4", "0", false },
        { "4", "3", "0", false },
        { "3", "3", "", false },
        { "3", "3", "6x", false },
        { "3", "3", "x", false },
        { "3", "3", "0x6", false },
        { "3", "3", "99999999999999999999", false },
        { "3", "3", "-99999999999999999999", false },
        { "3", "", "6", false },
        { "", "3", "6", false },
        { "03", "3", "6", false },
        { "UNKNOWN VERSION", "", "", false },
        { nullptr, "3", "6", false },
        { "3", nullptr, "6", false },
        { "3", "3", nullptr, false },
    };
    for (const auto& c : cases)
        EXPECT_EQ(RvCheckAPIVersion(c.arch, c.major, c.minor), c.accepted)
            << (c.arch ? c.arch : "null") << "." << (c.major ? c.major : "null") << "."
            << (c.minor ? c.minor : "null");
}
