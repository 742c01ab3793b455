// Tests of core/src/drivers/driver_oiio.cpp: files appear whole or not at all.
#include "allocation_failures.h"
#include "drivers/driver_tools.h"

#include <fstream>
#include <limits.h>
#include <signal.h>
#include <sstream>
#include <sys/resource.h>

namespace {

using namespace driver_tools;

Picture grey()
{
    return { "RGBA", RV_TYPE_RGBA, [](int x, int y) {
                return std::vector<float>{ float(x % 7), float(y), 0.5f, 1 };
            } };
}

struct FileType {
    const char *node, *file;
};
const FileType file_types[] = { { "driver_exr", "a.exr" },
                                { "driver_tiff", "a.tif" },
                                { "driver_png", "a.png" },
                                { "driver_jpeg", "a.jpg" } };

class FileFailures : public Drivers {
protected:
    void writeText(const std::string& file, const std::string& text) const
    {
        std::ofstream(path(file)) << text;
    }
    std::string readText(const std::string& file) const
    {
        std::stringstream text;
        text << std::ifstream(path(file)).rdbuf();
        return text.str();
    }
    static void setFlag(const char* option, bool value)
    {
        RvNodeSetBool(RvUniverseGetOptions(), option, value);
    }
    // A render that stops after some of its buckets.
    static void renderPartly(RtNode* node, const Frame& frame, size_t count)
    {
        std::vector<Bucket> buckets = bucketsOf(frame);
        buckets.resize(count);
        DriverRun run(node, { grey() }, frame);
        run.writeAll(buckets);
        run.close();
    }
};

// Files of the process may not grow beyond this as long as the scope lasts.
struct DiskLimit {
    explicit DiskLimit(rlim_t bytes) : handler(signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit limit = { bytes, before.rlim_max };
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~DiskLimit()
    {
        setrlimit(RLIMIT_FSIZE, &before);
        signal(SIGXFSZ, handler);
    }
    rlimit before;
    sighandler_t handler;
};

TEST_F(FileFailures, a_file_has_its_name_only_when_it_is_whole)
{
    for (const FileType& type : file_types) {
        writeText(type.file, "an older picture");
        RtNode* const node = driver(type.node, type.file);
        const Frame frame = wholeFrame(200, 200, 16);
        DriverRun run(node, { grey() }, frame);
        run.writeAll(bucketsOf(frame));
        EXPECT_EQ(readText(type.file), "an older picture") << type.file;
        EXPECT_EQ(files().size(), 2u) << "one that grows beside it";
        messages().clear();
        run.close();
        EXPECT_EQ(takeInfos(), Texts{ "[drv] writing file `" + path(type.file) + "'" });
        EXPECT_EQ(readImage(path(type.file)).error, "") << type.file;
        EXPECT_EQ(files(), Texts{ type.file });
        RvNodeDestroy(node);
        std::filesystem::remove(path(type.file));
    }
}

TEST_F(FileFailures, a_render_that_was_stopped_leaves_a_valid_picture)
{
    for (const FileType& type : file_types)
        for (bool tiled : { false, true }) {
            RtNode* const node = driver(type.node, type.file);
            RvNodeSetBool(node, "tiled", tiled);
            takeProblems();
            renderPartly(node, wholeFrame(100, 100, 32), 6);
            EXPECT_EQ(takeProblem(), "") << type.file;
            const ImageRead image = readImage(path(type.file));
            EXPECT_EQ(image.error, "") << type.file;
            EXPECT_EQ(image.pixel(99, 99), std::vector<double>(image.channels.size())) << type.file;
            EXPECT_NE(image.pixel(5, 5)[2], 0) << type.file;
            RvNodeDestroy(node);
        }
}

TEST_F(FileFailures, a_stopped_render_that_drops_its_buckets_keeps_the_older_file)
{
    setFlag("flush_buckets_on_halt", false);
    for (const FileType& type : file_types) {
        writeText(type.file, "an older picture");
        RtNode* const node = driver(type.node, type.file);
        messages().clear();
        renderPartly(node, wholeFrame(100, 100, 32), 6);
        EXPECT_EQ(takeInfos(), Texts()) << type.file;
        EXPECT_EQ(readText(type.file), "an older picture");
        renderPartly(node, wholeFrame(100, 100, 32), 16);
        EXPECT_EQ(readImage(path(type.file)).error, "") << "nothing was missing";
        RvNodeDestroy(node);
    }
    EXPECT_EQ(files().size(), std::size(file_types));
}

TEST_F(FileFailures, a_list_of_buckets_may_leave_some_out)
{
    setFlag("flush_buckets_on_halt", false);
    RvNodeSetStr(RvUniverseGetOptions(), "bucket_scanning", "list");
    renderPartly(driver("driver_exr", "a.exr"), wholeFrame(100, 100, 32), 6);
    EXPECT_EQ(readImage(path("a.exr")).error, "");
}

TEST_F(FileFailures, a_render_without_a_bucket_keeps_the_older_file)
{
    writeText("a.exr", "an older picture");
    renderPartly(driver("driver_exr", "a.exr"), wholeFrame(100, 100, 32), 0);
    EXPECT_EQ(readText("a.exr"), "an older picture");
}

TEST_F(FileFailures, a_driver_that_goes_away_takes_its_open_file_along)
{
    for (const FileType& type : file_types) {
        RtNode* const node = driver(type.node, type.file);
        DriverRun run(node, { grey() }, wholeFrame(100, 100, 32));
        run.write({ 0, 0, 32, 32 });
        EXPECT_EQ(files().size(), 1u);
        RvNodeDestroy(node);
        EXPECT_EQ(files(), Texts()) << type.file;
    }
    RtNode* const node = driver("driver_exr", "a.exr");
    DriverRun run(node, { grey() }, wholeFrame(100, 100, 32));
    run.write({ 0, 0, 32, 32 });
    // the universe ends with the file open; the fixture looks for what stays behind
}

TEST_F(FileFailures, opening_again_without_closing_starts_over)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    DriverRun first(node, { grey() }, wholeFrame(100, 100, 32));
    first.write({ 0, 0, 32, 32 });
    renderPartly(node, wholeFrame(40, 40, 32), 4);
    EXPECT_EQ(readImage(path("a.exr")).width(), 40);
    EXPECT_EQ(files(), Texts{ "a.exr" });
}

TEST_F(FileFailures, methods_without_an_open_file_do_nothing)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    const auto& methods = *static_cast<const RtDriverMethods*>(node->entry->kind_methods);
    methods.DriverWriteBucket(node, nullptr, nullptr, 0, 0, 16, 16);
    methods.DriverClose(node, nullptr);
    DriverRun run(node, {}, wholeFrame(16, 16, 16));
    run.write({ 0, 0, 16, 16 });
    run.close();
    EXPECT_EQ(takeProblem(), "");
    EXPECT_EQ(files(), Texts());
}

TEST_F(FileFailures, files_that_cannot_be_created_are_reported)
{
    std::filesystem::create_directory(path("folder"));
    const std::string too_long = path(std::string(300, 'n') + ".exr");
    for (const std::string& name :
         { path("missing/a.exr"), path("folder"), path("folder/"), std::string(),
           std::string("/dev/null"), std::string("/proc/a.exr"), too_long,
           path("missing/" + std::string(5000, 'n')) }) {
        for (const FileType& type : file_types) {
            RtNode* const node = driver(type.node);
            RvNodeSetStr(node, "filename", name.c_str());
            takeProblems();
            renderPartly(node, wholeFrame(20, 20, 16), 4);
            EXPECT_EQ(takeProblem(),
                      std::string("[drv] ") + type.node + ": can't create file \"" + name + "\"");
            RvNodeDestroy(node);
        }
    }
    EXPECT_EQ(files(), Texts{ "folder" });
    EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(FileFailures, an_image_without_pixels_is_reported)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    for (const Frame& frame : { Frame{ { 0, 0, 9, 9 }, { 5, 5, 4, 5 }, 16 },
                                Frame{ { 0, 0, -1, 9 }, { 0, 0, 9, 9 }, 16 },
                                Frame{ { 0, 0, 9, 9 }, { INT_MIN, 0, INT_MAX, 9 }, 16 } }) {
        DriverRun run(node, { grey() }, frame);
        run.close();
        EXPECT_EQ(takeProblem(), "[drv] driver_exr: can't create file \"" + path("a.exr") + "\"");
    }
    EXPECT_EQ(files(), Texts());
}

TEST_F(FileFailures, images_bigger_than_their_format_are_reported)
{
    static const struct {
        const char* node;
        int side;
    } cases[] = { { "driver_jpeg", 65500 }, { "driver_png", 1000000 } };
    for (const auto& c : cases) {
        RtNode* const node = driver(c.node, "a");
        DriverRun fitting(node, { grey() }, wholeFrame(c.side, 1, 64));
        fitting.close();
        EXPECT_EQ(takeProblem(), "") << c.node;
        for (const Frame& frame :
             { wholeFrame(c.side + 1, 1, 64), wholeFrame(1, c.side + 1, 64) }) {
            DriverRun run(node, { grey() }, frame);
            run.close();
            EXPECT_EQ(takeProblem(),
                      std::string("[drv] ") + c.node + ": can't create file \"" + path("a") + "\"");
        }
        RvNodeDestroy(node);
    }
    EXPECT_EQ(files(), Texts());
}

TEST_F(FileFailures, what_the_library_refuses_at_once_is_reported_in_its_words)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    const RtWindow too_far = { 10, 0, INT_MAX / 2 + 5, 19 };
    DriverRun run(node, { grey() }, { too_far, { 10, 0, 19, 19 }, 16 });
    run.close();
    const std::string problem = takeProblem(), start = "[drv] " + path("a.exr") + ": ";
    EXPECT_EQ(problem.rfind(start, 0), 0u) << problem;
    EXPECT_NE(problem.find("Invalid display window"), std::string::npos) << problem;
    EXPECT_EQ(problem.find(".part-"), std::string::npos) << "under its name: " << problem;
    EXPECT_EQ(files(), Texts());
}

TEST_F(FileFailures, a_full_disk_leaves_the_older_file_and_nothing_else)
{
    for (const FileType& type : file_types)
        for (bool tiled : { false, true })
            for (rlim_t room : { 0, 100, 3000, 20000 }) {
                writeText(type.file, "an older picture");
                RtNode* const node = driver(type.node, type.file);
                RvNodeSetBool(node, "tiled", tiled);
                takeProblems();
                {
                    const DiskLimit limit(room);
                    render(node,
                           { { "RGBA", RV_TYPE_RGBA,
                               [](int x, int y) {
                                   const float noise = float((x * 7919 + y * 104729) % 1009) / 1009;
                                   return std::vector<float>{ noise, noise / 3, noise / 7, 1 };
                               } } },
                           wholeFrame(300, 300, 64));
                }
                const Texts problems = takeProblems();
                ASSERT_EQ(problems.size(), 1u) << type.file << " " << room;
                EXPECT_EQ(problems[0].rfind("[drv] ", 0), 0u) << problems[0];
                EXPECT_NE(problems[0].find(path(type.file)), std::string::npos) << problems[0];
                EXPECT_EQ(readText(type.file), "an older picture") << type.file << " " << room;
                EXPECT_EQ(files(), Texts{ type.file });
                RvNodeDestroy(node);
                std::filesystem::remove(path(type.file));
            }
}

TEST_F(FileFailures, trouble_with_a_tile_is_reported_by_its_place)
{
    RtNode* const node = driver("driver_tiff", "a.tif");
    RvNodeSetBool(node, "tiled", true);
    DriverRun run(node, { grey() }, wholeFrame(512, 512, 256));
    run.write({ 0, 0, 256, 256 });
    {
        const DiskLimit limit(1000);
        run.write({ 256, 0, 256, 256 });
    }
    const std::string problem = takeProblem();
    EXPECT_EQ(problem,
              "[drv] `" + path("a.tif") + "' had trouble writing tile 256,0: " + strerror(EFBIG));
    EXPECT_EQ(files(), Texts()) << "given up at once";
    run.write({ 0, 256, 256, 256 });
    run.close();
    EXPECT_EQ(takeProblem(), "") << "said once";
}

TEST_F(FileFailures, a_place_that_is_taken_at_the_end_is_reported)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    const Frame frame = wholeFrame(40, 40, 32);
    DriverRun run(node, { grey() }, frame);
    run.writeAll(bucketsOf(frame));
    std::filesystem::create_directory(path("a.exr"));
    run.close();
    EXPECT_EQ(takeProblem(), "[drv] " + path("a.exr") + ": " + strerror(EISDIR));
    EXPECT_EQ(files(), Texts{ "a.exr" });
    EXPECT_TRUE(std::filesystem::is_directory(path("a.exr")));
}

TEST_F(FileFailures, an_exhausted_heap_leaves_no_torn_file)
{
    for (bool tiled : { false, true }) {
        RtNode* const node = driver("driver_tiff", "a.tif");
        RvNodeSetBool(node, "tiled", tiled);
        int failures = 0;
        for (long allowed = 0;; ++allowed) {
            messages().clear();
            withAllocations(allowed, [&] { renderPartly(node, wholeFrame(64, 64, 32), 4); });
            const Texts problems = takeProblems();
            if (problems.empty())
                break;
            ++failures;
            EXPECT_EQ(problems.size(), 1u) << allowed;
            EXPECT_EQ(problems[0].rfind("can't allocate ", 0), 0u) << problems[0];
            ASSERT_EQ(files(), Texts()) << allowed;
        }
        EXPECT_GE(failures, 4) << "record, blocks, buckets, pixels";
        EXPECT_EQ(files(), Texts{ "a.tif" });
        std::filesystem::remove(path("a.tif"));
        RvNodeDestroy(node);
    }
}

TEST_F(FileFailures, strange_buckets_do_no_harm)
{
    for (bool tiled : { false, true }) {
        RtNode* const node = driver("driver_exr", "a.exr");
        RvNodeSetBool(node, "tiled", tiled);
        const Frame frame = { { 0, 0, 99, 99 }, { 10, 10, 89, 89 }, 32 };
        DriverRun run(node, { grey() }, frame);
        run.write({ 42, 10, 32, 32 });
        run.write({ 42, 10, 32, 32 });  // again
        run.write({ 0, 0, 30, 30 });    // across the corner of the region
        run.write({ 50, 50, 13, 17 });  // across several buckets
        run.write({ 200, 10, 32, 32 }); // outside
        run.write({ 10, 10, 0, 32 });
        run.write({ 85, 85, 100, 100 });
        const auto& methods = *static_cast<const RtDriverMethods*>(node->entry->kind_methods);
        RtOutputIterator none = { nullptr, 0, 0 };
        methods.DriverWriteBucket(node, &none, nullptr, INT_MAX, INT_MAX, INT_MAX, INT_MAX);
        methods.DriverWriteBucket(node, &none, nullptr, INT_MIN, 0, 5, 5);
        methods.DriverWriteBucket(node, &none, nullptr, 0, 0, -1, INT_MIN);
        run.close();
        const ImageRead image = readImage(path("a.exr"));
        EXPECT_EQ(image.error, "");
        const auto red = [&](int x, int y) { return image.pixel(x, y)[0]; };
        EXPECT_EQ(red(44, 12), 44 % 7);
        EXPECT_EQ(red(26, 26), 26 % 7);
        EXPECT_EQ(red(54, 60), 54 % 7);
        EXPECT_EQ(red(88, 88), 88 % 7);
        EXPECT_EQ(red(15, 71), 0) << "no bucket came";
        RvNodeDestroy(node);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(FileFailures, a_link_keeps_pointing_at_the_picture)
{
    std::filesystem::create_directory(path("disk"));
    std::filesystem::create_symlink(path("disk/real.exr"), path("a.exr"));
    RtNode* const node = driver("driver_exr", "a.exr");
    for (int i = 0; i < 2; ++i) { // the second time it exists
        renderPartly(node, wholeFrame(20, 20, 16), 4);
        EXPECT_TRUE(std::filesystem::is_symlink(path("a.exr")));
        EXPECT_EQ(readImage(path("disk/real.exr")).error, "");
    }
    EXPECT_EQ(files(), (Texts{ "a.exr", "disk" }));
}

TEST_F(FileFailures, a_replaced_picture_keeps_its_permissions)
{
    RtNode* const node = driver("driver_exr", "a.exr");
    renderPartly(node, wholeFrame(20, 20, 16), 4);
    for (const auto mode : { std::filesystem::perms(0600), std::filesystem::perms(0664) }) {
        std::filesystem::permissions(path("a.exr"), mode);
        renderPartly(node, wholeFrame(20, 20, 16), 4);
        EXPECT_EQ(readImage(path("a.exr")).error, "");
        EXPECT_EQ(std::filesystem::status(path("a.exr")).permissions(), mode);
    }
}

TEST_F(FileFailures, a_relative_name_means_the_folder_at_opening)
{
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    RtNode* const node = driver("driver_png");
    RvNodeSetStr(node, "filename", "here.png");
    DriverRun run(node, { grey() }, wholeFrame(20, 20, 32));
    run.write({ 0, 0, 20, 20 });
    std::filesystem::current_path(before);
    run.close();
    EXPECT_EQ(files(), Texts{ "here.png" });
}

} // namespace
