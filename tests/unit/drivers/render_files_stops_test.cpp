// Files of renders that are stopped, or that have nowhere to write to.
#include "drivers/rendered_files.h"

#include <random>
#include <sstream>
#include <thread>

namespace {

using namespace rendered_files;

// What drivers of type "stopper", which take raw samples, do.
struct Stopper {
    std::function<void()> on_open, on_write, on_close;
};
Stopper& stopper()
{
    static Stopper all;
    return all;
}

const RtNodeMethods& stopperMethods()
{
    static const char* required[] = { nullptr };
    static const RtCommonMethods common = {
        .Parameters = nullptr,
        .Initialize = [](RtNode* node,
                         void*) { RvRawDriverInitialize(node, required, false, nullptr); },
        .Update = nullptr,
        .Finish = RvDriverDestroy,
    };
    static const RtDriverMethods driver = {
        .DriverSupportsPixelType = [](RtNode*, int) { return true; },
        .DriverExtension = nullptr,
        .DriverOpen = [](RtNode*, RtOutputIterator*, RtWindow, RtWindow,
                         int) { image_tools::call(stopper().on_open); },
        .DriverPrepareBucket = nullptr,
        .DriverWriteBucket = [](RtNode*, RtOutputIterator*, RtAOVSampleIterator*, int, int, int,
                                int) { image_tools::call(stopper().on_write); },
        .DriverClose = [](RtNode*, RtOutputIterator*) { image_tools::call(stopper().on_close); },
    };
    static const RtNodeMethods methods = { &common, &driver };
    return methods;
}

const char* const older = "an older picture";

class StoppedFiles : public RenderedFiles {
protected:
    void SetUp() override
    {
        RenderedFiles::SetUp();
        stopper() = {};
        RvNodeInstall(RV_NODE_DRIVER, RV_TYPE_NONE, "stopper", "", &stopperMethods(), RV_VERSION);
    }
    void TearDown() override
    {
        RenderedFiles::TearDown();
        stopper() = {};
    }

    // A file of every type, each in the place of an older one.
    void makeFiles()
    {
        for (const FileType& type : file_types)
            makeDriver(type.node, type.file);
        setFiles(names());
        addStopper();
        makeOlderFiles();
    }
    // Ahead of all other drivers.
    static void addStopper()
    {
        Names statements = { "stopper" };
        const RtArray* const array = RvNodeGetArray(options(), "outputs");
        for (uint32_t i = 0; i < array->nelements; ++i)
            statements.push_back(RvArrayGetStr(array, i));
        named("stopper", "stopper");
        setOutputs(statements);
    }
    void makeOlderFiles() const
    {
        for (const std::string& file : names())
            std::ofstream(path(file)) << older;
        takeProblems();
    }
    static Names names()
    {
        Names all;
        for (const FileType& type : file_types)
            all.push_back(type.file);
        std::sort(all.begin(), all.end());
        return all;
    }
    bool isOlder(const std::string& file) const
    {
        std::stringstream text;
        text << std::ifstream(path(file)).rdbuf();
        return text.str() == older;
    }
    void expectOlderFiles(const std::string& what) const
    {
        for (const std::string& file : names())
            EXPECT_TRUE(isOlder(file)) << file << ", " << what;
        EXPECT_EQ(filesFound(), names()) << what;
    }
    // Files that may be compared with the display to the bit.
    void expectShownBuckets(const std::string& file, const std::string& what) const
    {
        const ImageRead image = read(file);
        ASSERT_EQ(corners(image.data_window), wholeImage()) << file << ", " << what;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const std::vector<int> shown = display().pixel(x, y);
                const std::vector<double> want =
                    shown[0] < 0 ? std::vector<double>(4)
                                 : std::vector<double>(shown.begin(), shown.end());
                ASSERT_EQ(image.pixel(x, y), want) << file << " " << x << "," << y << ", " << what;
            }
    }

    static constexpr size_t bucket_count = 20; // 5 by 4
};

// ---- Stops ----

TEST_F(StoppedFiles, a_stop_from_the_display_leaves_the_older_files_when_buckets_are_dropped)
{
    makeFiles();
    setFlag("flush_buckets_on_halt", false);
    for (const bool is_abort : { false, true })
        for (const int threads : { 1, 3 })
            for (const size_t last : { 1, 2, 7 }) {
                display().on_delivery = [&] {
                    if (display().delivered.size() == last)
                        is_abort ? RvRenderAbort() : RvRenderInterrupt();
                };
                set("threads", threads);
                EXPECT_EQ(renderImage(), is_abort ? RV_ABORT : RV_INTERRUPT);
                EXPECT_LT(display().delivered.size(), bucket_count);
                expectOlderFiles(std::to_string(last));
            }
    display().on_delivery = {};
    takeProblems();
    EXPECT_EQ(renderImage(), RV_SUCCESS);
    EXPECT_EQ(takeProblems(), "");
    EXPECT_EQ(display().delivered.size(), bucket_count);
    for (const char* file : { "a.tif", "a.png" })
        expectShownBuckets(file, "the next render");
    EXPECT_EQ(filesFound(), names());
}

TEST_F(StoppedFiles, a_stop_leaves_the_flushed_buckets_in_valid_files)
{
    makeFiles();
    for (const int threads : { 1, 3 })
        for (const bool tiled : { false, true })
            for (const size_t last : { 1, 2, 7 }) {
                makeOlderFiles();
                for (const char* file : { "a.tif", "a.exr" })
                    RvNodeSetBool(RvNodeLookUpByName(file), "tiled", tiled);
                display().on_delivery = [&] {
                    if (display().delivered.size() == last)
                        RvRenderInterrupt();
                };
                set("threads", threads);
                const std::string what =
                    std::to_string(last) + " with " + std::to_string(threads) + " threads";
                EXPECT_EQ(renderImage(), RV_INTERRUPT) << what;
                EXPECT_LT(display().delivered.size(), bucket_count) << what;
                EXPECT_EQ(takeProblems(), "") << what;
                EXPECT_EQ(filesFound(), names()) << what;
                for (const char* file : { "a.tif", "a.png" })
                    expectShownBuckets(file, what);
                const ImageRead exr = read("a.exr");
                for (int y = 0; y < height; ++y)
                    for (int x = 0; x < width; ++x)
                        for (size_t c = 0; c < 4; ++c) {
                            const float value = plate("RGBA").pixel(x, y)[c];
                            ASSERT_EQ(exr.pixel(x, y)[c], std::isnan(value) ? 0 : double(value))
                                << x << "," << y << ", " << what;
                        }
                EXPECT_EQ(read("a.jpg").width(), width) << what;
            }
}

TEST_F(StoppedFiles, a_stop_before_the_first_bucket_leaves_the_older_files)
{
    static const struct {
        const char* when;
        std::function<void()>* action;
    } moments[] = {
        { "a driver is opened", &stopper().on_open },
        { "a bucket is announced", &display().on_announce },
    };
    makeFiles();
    setFlag("flush_buckets_on_halt", false);
    for (const auto& moment : moments)
        for (auto* const stop : { RvRenderInterrupt, RvRenderAbort }) {
            *moment.action = stop;
            EXPECT_NE(renderImage(), RV_SUCCESS) << moment.when;
            *moment.action = {};
            expectOlderFiles(moment.when);
        }
    setFlag("flush_buckets_on_halt", true);
    stopper().on_open = RvRenderInterrupt;
    EXPECT_EQ(renderImage(), RV_INTERRUPT);
    EXPECT_TRUE(display().delivered.empty());
    expectOlderFiles("nothing to flush");
}

TEST_F(StoppedFiles, a_driver_of_raw_samples_may_stop_the_render)
{
    makeFiles();
    for (const bool flush : { false, true }) {
        setFlag("flush_buckets_on_halt", flush);
        size_t buckets = 0;
        stopper().on_write = [&] {
            if (++buckets == 3)
                RvRenderInterrupt();
        };
        EXPECT_EQ(renderImage(), RV_INTERRUPT);
        EXPECT_EQ(buckets, 3u);
        EXPECT_EQ(takeProblems(), "");
        if (flush) {
            for (const char* file : { "a.tif", "a.png" })
                expectShownBuckets(file, "flushed");
            EXPECT_EQ(filesFound(), names());
        } else {
            expectOlderFiles("dropped");
        }
    }
}

TEST_F(StoppedFiles, a_stop_while_files_are_closed_comes_too_late)
{
    makeFiles();
    setFlag("flush_buckets_on_halt", false);
    stopper().on_close = RvRenderInterrupt;
    EXPECT_EQ(renderImage(), RV_INTERRUPT);
    for (const char* file : { "a.tif", "a.png" })
        expectShownBuckets(file, "complete");
    EXPECT_EQ(filesFound(), names());
}

TEST_F(StoppedFiles, an_error_of_a_shader_ends_the_render_and_keeps_the_older_files)
{
    makeFiles();
    setFlag("flush_buckets_on_halt", false);
    RvNodeSetPtr(options(), "background", named("facing", "background"));
    image_tools::onShade() = [](RtShaderGlobals* sg) {
        if (sg->pixel_x == 60 && sg->pixel_y == 5)
            RvMsgError("broken");
    };
    EXPECT_EQ(renderImage(), RV_ABORT);
    EXPECT_GT(display().delivered.size(), 0u);
    expectOlderFiles("an error");
}

TEST_F(StoppedFiles, stops_at_any_time_leave_whole_files_and_nothing_else)
{
    makeFiles();
    std::mt19937 random(3);
    std::uniform_int_distribution<int> delay(0, 12000);
    int stopped = 0;
    for (int i = 0; i < 60; ++i) {
        const bool flush = i % 2, is_abort = i % 3 == 0;
        setFlag("flush_buckets_on_halt", flush);
        set("threads", 1 + i % 4);
        makeOlderFiles();
        const int microseconds = delay(random);
        std::atomic<bool> is_started = false;
        std::thread host([&] {
            while (!is_started)
                std::this_thread::yield();
            std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
            is_abort ? RvRenderAbort() : RvRenderInterrupt();
        });
        is_started = true;
        const int result = renderImage();
        host.join();
        stopped += result != RV_SUCCESS;
        const bool is_complete = display().delivered.size() == bucket_count;
        EXPECT_TRUE(is_complete || result != RV_SUCCESS);
        ASSERT_EQ(filesFound(), names()) << i;
        for (const char* file : { "a.tif", "a.png" })
            if (is_complete || (flush && !display().delivered.empty()))
                expectShownBuckets(file, std::to_string(i));
            else
                EXPECT_TRUE(isOlder(file)) << i;
        for (const char* file : { "a.exr", "a.jpg" })
            if (!isOlder(file)) {
                EXPECT_EQ(read(file).width(), width) << i;
            }
    }
    EXPECT_GT(stopped, 0);
}

// ---- Places that take no file ----

TEST_F(StoppedFiles, places_that_take_no_file_are_errors_that_end_the_render)
{
    std::ofstream(path("text")) << "not a folder";
    std::filesystem::create_directory(path("folder"));
    static const struct {
        const char* place;
        bool is_absolute;
    } places[] = {
        { "missing/a", false }, { "text/a", false },     { "folder", false },
        { "/proc/a", true },    { "/dev/null/a", true },
    };
    for (const FileType& type : file_types)
        for (const auto& p : places) {
            const std::string place = p.is_absolute ? p.place : path(p.place);
            RtNode* const node = makeDriver(type.node, "drv");
            RvNodeSetStr(node, "filename", place.c_str());
            setFiles({ "drv" });
            takeProblems();
            const std::string error =
                std::string("E [drv] ") + type.node + ": can't create file \"" + place + "\"";
            setFlag("abort_on_error", true);
            EXPECT_EQ(renderImage(), RV_ABORT) << place;
            EXPECT_TRUE(display().delivered.empty()) << place;
            EXPECT_EQ(takeProblems().rfind(error, 0), 0u) << place;
            setFlag("abort_on_error", false);
            EXPECT_EQ(renderImage(), RV_SUCCESS) << place;
            EXPECT_EQ(display().delivered.size(), bucket_count) << "the others get the image";
            EXPECT_EQ(takeProblems(), error);
            RvNodeDestroy(node);
        }
    EXPECT_EQ(filesFound(), (Names{ "folder", "text" }));
    EXPECT_TRUE(std::filesystem::is_empty(path("folder")));
}

TEST_F(StoppedFiles, a_folder_that_vanishes_while_the_image_is_rendered_is_an_error)
{
    for (const FileType& type : file_types) {
        std::filesystem::create_directory(path("short-lived"));
        RtNode* const node = makeDriver(type.node, "drv");
        RvNodeSetStr(node, "filename", path("short-lived/a").c_str());
        setFiles({ "drv" });
        takeProblems();
        display().on_delivery = [&] { std::filesystem::remove_all(path("short-lived")); };
        EXPECT_EQ(renderImage(), RV_ABORT) << "which the error asked for";
        display().on_delivery = {};
        EXPECT_EQ(takeProblems(), "E [drv] " + path("short-lived/a") + ": " + strerror(ENOENT))
            << type.node;
        EXPECT_EQ(filesFound(), Names());
        RvNodeDestroy(node);
    }
}

} // namespace
