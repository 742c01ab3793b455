// Dynamic libraries. The mathematical library of the system, under names of our own, is the
// library that gets loaded.
#include "system/dyn_library.h"

#include "frame_fixture.h"

#include <dlfcn.h>
#include <filesystem>

class DynamicLibraries : public BareFrame {
protected:
    void SetUp() override
    {
        BareFrame::SetUp();
        std::filesystem::create_directories(folder());
    }
    void TearDown() override
    {
        std::filesystem::remove_all(folder());
        BareFrame::TearDown();
    }

    static std::string folder() { return tempPath("folder"); }
    static std::string inFolder(const std::string& name) { return folder() + "/" + name; }

    static std::string systemLibrary()
    {
        void* const library = dlopen("libm.so.6", RTLD_NOW);
        Dl_info info = {};
        EXPECT_NE(dladdr(dlsym(library, "cos"), &info), 0);
        dlclose(library);
        return std::filesystem::canonical(info.dli_fname);
    }

    static void install(const std::string& name)
    {
        std::filesystem::create_symlink(systemLibrary(), inFolder(name));
    }

    // Loads, checks a symbol and closes again.
    static bool loads(const std::string& path)
    {
        void* const library = rv::libraryLoad(path.c_str());
        const bool works = rv::librarySymbol(library, "cos") != nullptr;
        rv::libraryClose(library);
        return works;
    }
};

TEST_F(DynamicLibraries, path_in_so_is_loaded_with_the_platforms_extension)
{
    install("plug.so");
    EXPECT_TRUE(loads(inFolder("plug.so")));
    EXPECT_FALSE(loads(inFolder("other.so")));
}

TEST_F(DynamicLibraries, path_without_extension_is_tried_as_given_and_then_with_one)
{
    install("plug.so");
    install("plain");
    EXPECT_TRUE(loads(inFolder("plug")));
    EXPECT_TRUE(loads(inFolder("plain")));
    EXPECT_FALSE(loads(inFolder("missing")));
}

TEST_F(DynamicLibraries, path_with_another_extension_is_loaded_as_given_only)
{
    install("plug.dll");
    install("other.dll.so");
    EXPECT_TRUE(loads(inFolder("plug.dll")));
    EXPECT_FALSE(loads(inFolder("other.dll")));
}

TEST_F(DynamicLibraries, dot_in_a_folder_name_is_no_extension)
{
    std::filesystem::create_directory(inFolder("v1.2"));
    install("v1.2/plug.so");
    EXPECT_TRUE(loads(inFolder("v1.2/plug")));
}

TEST_F(DynamicLibraries, bare_name_means_a_file_of_the_current_folder_first)
{
    install("plug.so");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder());
    const bool with = loads("plug.so"), without = loads("plug"), missing = loads("missing.so");
    std::filesystem::current_path(before);
    EXPECT_TRUE(with);
    EXPECT_TRUE(without);
    EXPECT_FALSE(missing);
    EXPECT_TRUE(loads("libm.so.6")); // and then one of the system's folders
}

TEST_F(DynamicLibraries, short_and_empty_paths_are_refused)
{
    for (const char* path : { ".so", "", "so", "." }) {
        EXPECT_EQ(rv::libraryLoad(path), nullptr) << path;
        EXPECT_STRNE(rv::libraryError(), "") << path;
    }
    EXPECT_EQ(rv::libraryLoad(nullptr), nullptr);
    EXPECT_STREQ(rv::libraryError(), "no library named");
}

TEST_F(DynamicLibraries, error_is_the_systems_text_without_a_newline)
{
    const std::string path = inFolder("missing.so");
    EXPECT_EQ(rv::libraryLoad(path.c_str()), nullptr);
    EXPECT_EQ(rv::libraryError(),
              path + ": cannot open shared object file: No such file or directory");
    std::ofstream(inFolder("text.so")) << std::string(5000, 'x');
    EXPECT_EQ(rv::libraryLoad(inFolder("text.so").c_str()), nullptr);
    EXPECT_EQ(rv::libraryError(), inFolder("text.so") + ": invalid ELF header");
    EXPECT_EQ(takeProblem(), ""); // the caller reports it
}

TEST_F(DynamicLibraries, error_of_a_very_long_path_is_bounded)
{
    EXPECT_EQ(rv::libraryLoad((folder() + std::string(5000, 'x') + ".so").c_str()), nullptr);
    EXPECT_LT(strlen(rv::libraryError()), 1024u);
}

TEST_F(DynamicLibraries, each_load_needs_a_close_of_its_own)
{
    install("plug.so");
    void* const first = rv::libraryLoad(inFolder("plug.so").c_str());
    void* const second = rv::libraryLoad(inFolder("plug").c_str());
    EXPECT_EQ(first, second);
    rv::libraryClose(first);
    EXPECT_NE(rv::librarySymbol(second, "cos"), nullptr);
    rv::libraryClose(second);
}

TEST_F(DynamicLibraries, unknown_symbol_is_null)
{
    install("plug.so");
    void* const library = rv::libraryLoad(inFolder("plug.so").c_str());
    EXPECT_EQ(rv::librarySymbol(library, "NodeLoader"), nullptr);
    EXPECT_EQ(rv::librarySymbol(library, nullptr), nullptr);
    EXPECT_EQ(rv::librarySymbol(nullptr, "cos"), nullptr);
    rv::libraryClose(library);
    rv::libraryClose(nullptr);
}

TEST_F(DynamicLibraries, loading_reports_an_exhausted_heap)
{
    install("plug.so");
    const size_t size = inFolder("plug.so").size() + 1;
    rv::limitAllocations(0);
    EXPECT_EQ(rv::libraryLoad(inFolder("plug.so").c_str()), nullptr);
    EXPECT_EQ(takeProblemWithoutLines(),
              "can't allocate " + std::to_string(size) +
                  " bytes in core\\src\\system\\dyn_library:RvLibraryLoad():");
    EXPECT_EQ(rv::libraryError(), inFolder("plug.so") + ": out of memory");
}

TEST_F(DynamicLibraries, concurrent_failures_keep_their_own_errors)
{
    onThreads(4, [](int thread) {
        const std::string path = "/nowhere/" + std::to_string(thread) + ".so";
        for (int i = 0; i < 50; ++i) {
            rv::libraryLoad(path.c_str());
            EXPECT_EQ(std::string(rv::libraryError()).rfind(path, 0), 0u);
        }
    });
}
