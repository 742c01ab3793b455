// The string hash.
#include "hash.h"

#include "frame_fixture.h"

static std::string fromHex(const std::string& hex)
{
    std::string bytes;
    for (size_t i = 0; i < hex.size(); i += 2)
        bytes += char(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

TEST(StringHash, agrees_with_the_golden_vectors)
{
    for (const auto& v : goldenVectors("foundation", "string_hash")) {
        const std::string bytes = fromHex(v["in"]["bytes_hex"]);
        const uint32_t expected = v["out"]["hash"];
        EXPECT_EQ(rv::stringHash(bytes.data(), bytes.size()), expected) << v["id"];
        ASSERT_EQ(bytes.find('\0'), std::string::npos) << v["id"];
        EXPECT_EQ(rv::stringHash(bytes.c_str()), expected) << v["id"];
    }
}

TEST(StringHash, of_the_empty_string_is_0)
{
    EXPECT_EQ(rv::stringHash(""), 0u);
    EXPECT_EQ(rv::stringHash("x", 0), 0u);
}

TEST(StringHash, depends_on_no_alignment)
{
    char buffer[64];
    const char text[] = "/tmp/myTexture.0001.tif";
    for (size_t offset = 0; offset < 8; ++offset) {
        memcpy(buffer + offset, text, sizeof text);
        EXPECT_EQ(rv::stringHash(buffer + offset), rv::stringHash(text)) << offset;
    }
}

TEST(StringHash, reads_nothing_behind_its_length)
{
    const char text[] = "abcdefgh";
    for (size_t length = 0; length <= 8; ++length) {
        char* const exact = static_cast<char*>(malloc(length ? length : 1));
        memcpy(exact, text, length);
        EXPECT_EQ(rv::stringHash(exact, length), rv::stringHash(text, length)) << length;
        free(exact);
    }
}
