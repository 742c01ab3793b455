// The machine and the process, compared with what the system tells elsewhere.
#include "system/machine.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>

// The rest of the first line of a file that begins with `name`, behind its colon and blanks.
static std::string field(const char* path, const std::string& name)
{
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.rfind(name, 0) == 0) {
            const size_t colon = line.find(':');
            return line.substr(line.find_first_not_of(" \t", colon + 1));
        }
    return "";
}

TEST(Machine, host_name_is_the_systems)
{
    std::string expected;
    std::getline(std::ifstream("/proc/sys/kernel/hostname"), expected);
    char name[256];
    ASSERT_TRUE(rv::hostName(name, sizeof name));
    EXPECT_EQ(name, expected);
}

TEST(Machine, host_name_that_does_not_fit_is_refused_or_cut)
{
    char name[256];
    ASSERT_TRUE(rv::hostName(name, sizeof name));
    char small[2] = { 'x', 'x' };
    const bool cut = rv::hostName(small, sizeof small);
    EXPECT_EQ(cut ? small[1] : '\0', '\0');
    EXPECT_FALSE(rv::hostName(small, 0));
}

TEST(Machine, processor_count_is_what_this_process_may_use)
{
    EXPECT_EQ(rv::processorCount(), int(std::thread::hardware_concurrency()));
}

TEST(Machine, processor_clock_is_plausible_or_unknown)
{
    const int mhz = rv::processorMHz();
    EXPECT_TRUE(mhz == -1 || (mhz >= 100 && mhz <= 20000)) << mhz;
    const bool told = !field("/proc/cpuinfo", "cpu MHz").empty();
    EXPECT_TRUE(mhz > 0 || !told) << mhz;
}

TEST(Machine, processor_vendor_is_the_systems)
{
    const std::string expected = field("/proc/cpuinfo", "vendor_id");
    char vendor[256];
    rv::processorVendor(vendor, sizeof vendor);
    EXPECT_EQ(vendor, expected.empty() ? "not identified" : expected);
    char small[5];
    rv::processorVendor(small, sizeof small);
    EXPECT_EQ(small, std::string(vendor).substr(0, 4));
}

TEST(Machine, physical_memory_is_the_systems)
{
    const double expected = std::stod(field("/proc/meminfo", "MemTotal")) * 1024;
    EXPECT_NEAR(double(rv::physicalMemory()), expected, expected * 0.01);
}

TEST(Machine, resident_memory_is_the_processs)
{
    const double expected = std::stod(field("/proc/self/status", "VmRSS")) * 1024;
    EXPECT_NEAR(double(rv::residentMemory()), expected, expected * 0.25 + (4 << 20));
    EXPECT_LT(rv::residentMemory(), rv::physicalMemory());
}

TEST(Machine, library_folder_holds_this_code)
{
    char folder[4096];
    ASSERT_TRUE(rv::libraryFolder(folder, sizeof folder));
    EXPECT_EQ(folder[strlen(folder) - 1], '/');
    // These tests are linked with the code they test, so the program is the library's file.
    const auto program = std::filesystem::read_symlink("/proc/self/exe");
    EXPECT_TRUE(std::filesystem::equivalent(folder + program.filename().string(), program))
        << folder;
}

TEST(Machine, library_folder_that_does_not_fit_is_refused)
{
    char folder[4096];
    ASSERT_TRUE(rv::libraryFolder(folder, sizeof folder));
    char exact[4096];
    EXPECT_TRUE(rv::libraryFolder(exact, strlen(folder) + 1));
    EXPECT_FALSE(rv::libraryFolder(exact, strlen(folder)));
    EXPECT_FALSE(rv::libraryFolder(exact, 0));
}
