// Search paths, file extensions and folder listings.
#include "system/file_tools.h"

#include "frame_fixture.h"

#include <filesystem>
#include <set>

class FileTools : public BareFrame {
protected:
    void TearDown() override
    {
        std::filesystem::remove_all(folder());
        BareFrame::TearDown();
    }

    static std::string folder() { return tempPath("folder"); }

    static void createFiles(const std::vector<std::string>& names)
    {
        std::filesystem::create_directories(folder());
        for (const std::string& name : names)
            std::ofstream(folder() + "/" + name) << "x";
    }

    static std::set<std::string> found(const std::string& directory, const char* extension)
    {
        unsigned count = 1000;
        char** const paths = RvFindFiles(directory.c_str(), extension, &count);
        EXPECT_NE(paths, nullptr);
        const std::set<std::string> all(paths, paths + count);
        EXPECT_EQ(all.size(), count);
        RvFree_func(paths);
        return all;
    }
};

// --------------------------------------------------------------------------- search paths

// The entries and the characters consumed by each call, up to the call that returns 0.
static nlohmann::json walk(const std::string& multipath)
{
    nlohmann::json calls = nlohmann::json::array();
    const char* next = multipath.c_str();
    for (;;) {
        char path[1024];
        const size_t consumed = RvNextPath(next, path, sizeof path);
        if (consumed == 0) {
            EXPECT_STREQ(path, "");
            calls.push_back({ 0, nullptr });
            return calls;
        }
        calls.push_back({ consumed, path });
        next += consumed;
    }
}

TEST_F(FileTools, walks_search_paths_as_the_golden_vectors_say)
{
    for (const auto& v : goldenVectors("foundation", "RvNextPath"))
        EXPECT_EQ(walk(v["in"]["multipath"]), v["out"]["calls"]) << v["id"];
}

TEST_F(FileTools, finds_three_entries_whatever_the_separators)
{
    for (const char* multipath : { "path1/to/files;path2/to/files;path3/to/files",
                                   "path1/to/files;;path2/to/files;;;path3/to/files",
                                   ";;path1/to/files;path2/to/files;path3/to/files",
                                   "path1/to/files;path2/to/files;path3/to/files;;" }) {
        const nlohmann::json calls = walk(multipath);
        ASSERT_EQ(calls.size(), 4u) << multipath;
        for (size_t i = 0; i < 3; ++i)
            EXPECT_EQ(calls[i][1], "path" + std::to_string(i + 1) + "/to/files") << multipath;
    }
}

TEST_F(FileTools, cuts_an_entry_that_does_not_fit_and_goes_on_behind_it)
{
    char path[4];
    EXPECT_EQ(RvNextPath("abcdef;g", path, sizeof path), 6u);
    EXPECT_STREQ(path, "abc");
    EXPECT_EQ(RvNextPath(";abc", path, sizeof path), 4u);
    EXPECT_STREQ(path, "abc");
    EXPECT_EQ(RvNextPath("abc", nullptr, 0), 3u);
    EXPECT_EQ(RvNextPath("abc", path, 1), 3u);
    EXPECT_STREQ(path, "");
}

TEST_F(FileTools, skips_entries_that_do_not_fit_when_asked_for_whole_ones)
{
    char path[4];
    EXPECT_EQ(rv::nextWholePath("abcd;;efgh;ijk;l", path, sizeof path), 14u);
    EXPECT_STREQ(path, "ijk") << "which just fits";
    EXPECT_EQ(rv::nextWholePath(";l", path, sizeof path), 2u);
    EXPECT_STREQ(path, "l");
    EXPECT_EQ(rv::nextWholePath(";abcd;", path, sizeof path), 0u);
    EXPECT_EQ(rv::nextWholePath("", path, sizeof path), 0u);
    EXPECT_EQ(rv::nextWholePath(nullptr, path, sizeof path), 0u);
}

TEST_F(FileTools, walks_no_entry_of_a_null_search_path)
{
    char path[4] = "xyz";
    EXPECT_EQ(RvNextPath(nullptr, path, sizeof path), 0u);
    EXPECT_STREQ(path, "");
}

// ----------------------------------------------------------------------------- extensions

TEST_F(FileTools, checks_extensions_as_the_golden_vectors_say)
{
    for (const auto& v : goldenVectors("foundation", "RvCheckFileExtension"))
        EXPECT_EQ(RvCheckFileExtension(v["in"]["filename"].get<std::string>().c_str(),
                                       v["in"]["ext"].get<std::string>().c_str(),
                                       v["in"]["allow_gz"]),
                  v["out"]["value"])
            << v["id"];
}

TEST_F(FileTools, checks_extensions_without_regard_to_case)
{
    static const struct {
        const char *filename, *ext;
        bool allow_gz, matches;
    } cases[] = {
        { "SCENE.RVS", "rvs", false, true },
        { "scene.rvs", "RVS", false, true },
        { "Scene.Rvs.Gz", "rvs", true, true },
        { "Scene.Rvs.Gz", "GZ", false, true },
        { "pepe.gz", "gz", false, true },
        { "pepe.gz", "gz", true, true },
        { "pepe.obj", "obj", true, true },
        { "pepe-rvs", "rvs", true, false },
        { "pepe.rvs.gz", "rvs", false, false },
        { "pepe.rvs.gz", "rvs", true, true },
        { "pepe.rvs", "rvs", true, true },
        { "pepe.gz", "rvs", true, false },
        { "pepe.rvs.gz.gz", "rvs", true, false },
        { ".rvs", "rvs", false, true },
        { ".gz", "rvs", true, false },
        { "rvs", "rvs", false, false },
        { "pepe.", "", false, true },
        { "pepe", "", false, false },
        { "", "rvs", true, false },
        { "pepe.rv", "rvs", false, false },
        { "pepe.rvsx", "rvs", false, false },
        { "folder.rvs/pepe", "rvs", false, false },
        { "scene.rvs.", "rvs", true, false },
        { "rvs.gz", "rvs", true, false },
        { "gz", "rvs", true, false },
        { nullptr, "rvs", true, false },
        { "pepe.rvs", nullptr, true, false },
    };
    for (const auto& c : cases)
        EXPECT_EQ(RvCheckFileExtension(c.filename, c.ext, c.allow_gz), c.matches)
            << (c.filename ? c.filename : "null") << " " << (c.ext ? c.ext : "null");
}

TEST_F(FileTools, checks_extensions_of_names_of_any_length)
{
    const std::string longest(100000, 'x');
    EXPECT_TRUE(RvCheckFileExtension((longest + ".rvs").c_str(), "rvs", false));
    EXPECT_TRUE(RvCheckFileExtension((longest + ".rvs.gz").c_str(), "rvs", true));
    EXPECT_TRUE(RvCheckFileExtension(("a." + longest).c_str(), longest.c_str(), false));
    EXPECT_FALSE(RvCheckFileExtension("a.rvs", longest.c_str(), true));
}

// ------------------------------------------------------------------------------- listings

TEST_F(FileTools, lists_the_files_with_the_extension)
{
    createFiles({ "a.so", "b.so", "c.txt", "so", "dso", "d.so.bak", "e.x.so" });
    EXPECT_EQ(found(folder(), "so"), (std::set<std::string>{ folder() + "/a.so", folder() + "/b.so",
                                                             folder() + "/e.x.so" }));
}

TEST_F(FileTools, lists_extensions_that_hold_a_dot)
{
    createFiles({ "a.rvs.gz", "b.gz", "c.rvs", "d.xrvs.gz", "rvs.gz", ".rvs.gz" });
    EXPECT_EQ(found(folder(), "rvs.gz"),
              (std::set<std::string>{ folder() + "/a.rvs.gz", folder() + "/.rvs.gz" }));
}

TEST_F(FileTools, lists_paths_under_the_folder_as_given)
{
    createFiles({ "a.so" });
    EXPECT_EQ(found(folder() + "/", "so"), std::set<std::string>{ folder() + "//a.so" });
}

TEST_F(FileTools, lists_files_and_links_to_them_but_no_folders)
{
    createFiles({ "a.so" });
    std::filesystem::create_directory(folder() + "/folder.so");
    std::filesystem::create_symlink("a.so", folder() + "/link.so");
    std::filesystem::create_symlink("nowhere", folder() + "/broken.so");
    EXPECT_EQ(found(folder(), "so"),
              (std::set<std::string>{ folder() + "/a.so", folder() + "/link.so",
                                      folder() + "/broken.so" }));
}

TEST_F(FileTools, lists_nothing_where_nothing_matches_or_exists)
{
    createFiles({ "a.txt" });
    EXPECT_TRUE(found(folder(), "so").empty());
    EXPECT_TRUE(found(folder() + "/missing", "so").empty());
    EXPECT_TRUE(found("", "so").empty());
}

TEST_F(FileTools, lists_at_most_256_files)
{
    std::vector<std::string> names;
    for (int i = 0; i < 300; ++i)
        names.push_back(numbered("plug%d.so", i));
    createFiles(names);
    EXPECT_EQ(found(folder(), "so").size(), 256u);
}

TEST_F(FileTools, lists_no_path_that_would_be_cut)
{
    createFiles({ "a.so" });
    std::string deep = folder();
    while (deep.size() + 2 < 1019)
        deep += "/.";
    while (deep.size() < 1018)
        deep += "/";
    EXPECT_EQ(found(deep, "so").size(), 1u); // 1018 + 1 + 4 characters and the zero
    EXPECT_TRUE(found(deep + "/", "so").empty());
}

TEST_F(FileTools, listing_is_one_allocation_of_264192_bytes)
{
    createFiles({ "a.so" });
    rv::limitAllocations(0);
    unsigned count = 7;
    EXPECT_EQ(RvFindFiles(folder().c_str(), "so", &count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate 264192 bytes in core\\src\\system\\file_tools:RvFindFiles():");
    rv::limitAllocations(1);
    EXPECT_EQ(found(folder(), "so").size(), 1u);
}

TEST_F(FileTools, listing_of_null_is_nothing)
{
    unsigned count = 7;
    EXPECT_EQ(RvFindFiles(nullptr, "so", &count), nullptr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(RvFindFiles(".", nullptr, &count), nullptr);
}
