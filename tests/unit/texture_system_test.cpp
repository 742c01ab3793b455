// Tests of texture_system.cpp: options, changed files, flushing and statistics.
#include "texture.h"

#include "image_tools.h"
#include "texture_tools.h"

#include <sys/resource.h>
#include <thread>

using namespace texture_tools;

namespace {

constexpr OIIO::TypeDesc::BASETYPE u8 = OIIO::TypeDesc::UINT8;

// The system that the library shares with everybody in the process.
struct SharedSystem {
    OIIO::TextureSystem* const system = OIIO::TextureSystem::create(true);
    SharedSystem() = default;
    SharedSystem(const SharedSystem&) = delete;
    SharedSystem& operator=(const SharedSystem&) = delete;
    ~SharedSystem() { OIIO::TextureSystem::destroy(system); }

    template <class T> T value(const char* name) const
    {
        T result = {};
        EXPECT_TRUE(system->getattribute(name, result)) << name;
        return result;
    }
};

TEST_F(Textures, options_reach_the_texture_system)
{
    rv::applyTextureOptions();
    const SharedSystem shared;
    EXPECT_GE(shared.value<int>("max_open_files"), 100);
    EXPECT_EQ(shared.value<float>("max_memory_MB"), 512);
    EXPECT_EQ(shared.value<std::string>("searchpath"), "");
    EXPECT_EQ(shared.value<int>("automip"), 1);
    EXPECT_EQ(shared.value<int>("autotile"), 64);
    EXPECT_EQ(shared.value<int>("accept_untiled"), 1);
    EXPECT_EQ(shared.value<int>("failure_retries"), 0);
    RvNodeSetInt(options(), "texture_max_open_files", 7777);
    RvNodeSetFlt(options(), "texture_max_memory_MB", 99);
    RvNodeSetStr(options(), "texture_searchpath", "some/folder:other");
    RvNodeSetBool(options(), "texture_automip", false);
    RvNodeSetInt(options(), "texture_autotile", 32);
    RvNodeSetBool(options(), "texture_accept_untiled", false);
    RvNodeSetInt(options(), "texture_failure_retries", 3);
    rv::applyTextureOptions();
    EXPECT_EQ(shared.value<int>("max_open_files"), 7777);
    EXPECT_EQ(shared.value<float>("max_memory_MB"), 99);
    EXPECT_EQ(shared.value<std::string>("searchpath"), "some/folder:other");
    EXPECT_EQ(shared.value<int>("automip"), 0);
    EXPECT_EQ(shared.value<int>("autotile"), 32);
    EXPECT_EQ(shared.value<int>("accept_untiled"), 0);
    EXPECT_EQ(shared.value<int>("failure_retries"), 3);
}

TEST_F(Textures, odd_options_are_survived)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 100, 10, 3, u8, constant({ 0.2f, 0.4f, 0.6f }));
    for (int odd : { -1, 0, 1, 3, 1 << 30, INT_MIN }) {
        RvNodeSetInt(options(), "texture_max_open_files", odd);
        RvNodeSetFlt(options(), "texture_max_memory_MB", float(odd));
        RvNodeSetInt(options(), "texture_autotile", odd);
        RvNodeSetInt(options(), "texture_failure_retries", odd);
        expectColor(look(file, 0.5f, 0.5f, 0.01f), { 0.2f, 0.4f, 0.6f, 1 }, 0.01f);
    }
    EXPECT_EQ(takeProblem(), "");
}

TEST_F(Textures, options_beyond_reason_are_bounded)
{
    const SharedSystem shared;
    RvNodeSetInt(options(), "texture_failure_retries", 2000000000);
    for (float size : { 2e6f, 1e11f }) {
        RvNodeSetFlt(options(), "texture_max_memory_MB", size);
        rv::applyTextureOptions();
        EXPECT_EQ(shared.value<float>("max_memory_MB"), 1 << 20);
        EXPECT_EQ(shared.value<int>("failure_retries"), 10);
    }
}

TEST_F(Textures, a_damaged_file_fails_soon_however_often_it_may_be_tried)
{
    const std::string file = folder.file("cut.tx");
    writeImage(file, 64, 64, 3, u8, pattern, [](OIIO::ImageSpec& spec) {
        spec.tile_width = spec.tile_height = 16;
        spec.attribute("compression", "none");
    });
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    RvNodeSetInt(options(), "texture_failure_retries", 2000000000);
    expectColor(look(file, 0.9f, 0.1f), error_color);
    EXPECT_NE(takeProblem(), "");
}

TEST_F(Textures, a_render_puts_its_options_in_force_whatever_others_did)
{
    rv::applyTextureOptions();
    const SharedSystem shared;
    shared.system->attribute("autotile", 16);
    rv::applyTextureOptions();
    EXPECT_EQ(shared.value<int>("autotile"), 64);
}

// Lowers how many files the process may hold open, for as long as it lives.
struct FewDescriptors {
    rlimit before;
    explicit FewDescriptors(rlim_t count)
    {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit lower = { std::min(count, before.rlim_max), before.rlim_max };
        setrlimit(RLIMIT_NOFILE, &lower);
    }
    FewDescriptors(const FewDescriptors&) = delete;
    FewDescriptors& operator=(const FewDescriptors&) = delete;
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }
};

TEST_F(Textures, as_many_files_stay_open_as_the_system_allows)
{
    const FewDescriptors few(200);
    const SharedSystem shared;
    const auto maximum = int(std::min<rlim_t>(few.before.rlim_max, INT_MAX));
    rlimit now;
    RvNodeSetInt(options(), "texture_max_open_files", 300);
    rv::applyTextureOptions();
    getrlimit(RLIMIT_NOFILE, &now);
    EXPECT_GT(now.rlim_cur, 300u);
    EXPECT_EQ(shared.value<int>("max_open_files"), 300);
    RvNodeSetInt(options(), "texture_max_open_files", INT_MAX);
    rv::applyTextureOptions();
    EXPECT_LE(shared.value<int>("max_open_files"), maximum - 100);
}

TEST_F(Textures, the_open_file_limit_counts_the_files_of_one_render)
{
    RvNodeSetInt(options(), "texture_max_open_files", 20);
    for (int frame = 0; frame < 4; ++frame) {
        rv::applyTextureOptions();
        EXPECT_EQ(SharedSystem().value<int>("max_open_files"), 20) << frame;
        for (int i = 0; i < 10; ++i)
            look(folder.file(("none" + std::to_string(frame * 10 + i) + ".tif").c_str()), 0, 0);
        EXPECT_EQ(SharedSystem().value<int>("max_open_files"), 20) << frame;
    }
    takeProblems();
}

TEST_F(Textures, untiled_files_may_be_refused)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 64, 64, 3, u8, constant({ 0.2f, 0.4f, 0.6f }));
    RvNodeSetBool(options(), "texture_accept_untiled", false);
    RvNodeSetInt(options(), "texture_autotile", 0);
    expectColor(look(file, 0.5f, 0.5f), error_color);
    EXPECT_NE(takeProblem().find("untiled"), std::string::npos);
}

TEST_F(Textures, files_are_found_along_the_search_path)
{
    writeImage(folder.file("only here.tif"), 4, 4, 3, u8, constant({ 0, 1, 0 }));
    expectColor(look("only here.tif", 0.5f, 0.5f), error_color);
    EXPECT_NE(takeProblem(), "");
    RvNodeSetStr(options(), "texture_searchpath", ("/none:" + folder.path()).c_str());
    expectColor(look("only here.tif", 0.5f, 0.5f), { 0, 1, 0, 1 });
    int width = 0, height = 0;
    EXPECT_TRUE(RvTextureGetResolution("only here.tif", &width, &height));
    EXPECT_EQ(width, 4);
    EXPECT_EQ(takeProblem(), "");
}

// Writes images of one name and different colours in two folders.
void writeRedAndGreen(const TextureFolder& red, const TextureFolder& green)
{
    writeImage(red.file("same.tif"), 4, 4, 3, u8, constant({ 1, 0, 0 }));
    writeImage(green.file("same.tif"), 4, 4, 3, u8, constant({ 0, 1, 0 }));
}

TEST_F(Textures, options_count_at_once_between_renders_and_are_those_of_the_universe)
{
    const TextureFolder other;
    writeRedAndGreen(folder, other);
    for (int round = 0; round < 2; ++round) {
        RvNodeSetStr(options(), "texture_searchpath", folder.path().c_str());
        EXPECT_EQ(look("same.tif", 0.5f, 0.5f).r, 1);
        RvNodeSetStr(options(), "texture_searchpath", other.path().c_str());
        RvUniverseCacheFlush(1);
        EXPECT_EQ(look("same.tif", 0.5f, 0.5f).g, 1);
        EXPECT_EQ(takeProblem(), "");
        // Here the options were met before, and in another thread.
        std::thread([&] { EXPECT_EQ(look("same.tif", 0.5f, 0.5f).g, 1); }).join();
        TearDown();
        Universe::SetUp();
        RvUniverseCacheFlush(1);
        expectColor(look("same.tif", 0.5f, 0.5f), error_color, 0, "the next universe");
        EXPECT_NE(takeProblem(), "");
        EXPECT_EQ(SharedSystem().value<std::string>("searchpath"), "");
    }
}

TEST_F(Textures, options_that_another_thread_put_in_force_are_noticed)
{
    RvNodeSetInt(options(), "texture_autotile", 32);
    look("none.tif", 0, 0);
    std::thread([] {
        RvNodeSetInt(options(), "texture_autotile", 16);
        look("none.tif", 0, 0);
    }).join();
    EXPECT_EQ(SharedSystem().value<int>("autotile"), 16);
    RvNodeSetInt(options(), "texture_autotile", 32); // as this thread saw it last
    look("none.tif", 0, 0);
    EXPECT_EQ(SharedSystem().value<int>("autotile"), 32);
    takeProblems();
}

// So that the change shows in the time of the file, whose steps may be seconds.
void makeOlder(const std::string& file)
{
    std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) -
                                               std::chrono::seconds(100));
}

TEST_F(Textures, a_changed_file_is_read_again_by_the_next_render_and_after_a_flush)
{
    const std::string file = folder.file("a.tif");
    const auto write = [&](float grey) { writeImage(file, 4, 4, 1, u8, constant({ grey })); };
    write(0);
    makeOlder(file);
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 0);
    write(1);
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 0);
    rv::applyTextureOptions();
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 1);
    write(0);
    RvUniverseCacheFlush(0x2);
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 1);
    RvUniverseCacheFlush(0x1);
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 0);
}

TEST_F(Textures, a_flush_works_without_a_universe)
{
    const std::string file = folder.file("a.tif");
    writeImage(file, 4, 4, 1, u8, constant({ 0 }));
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 0);
    writeImage(file, 4, 4, 1, u8, constant({ 1 }));
    TearDown();
    RvUniverseCacheFlush(0x1);
    Universe::SetUp();
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 1);
}

TEST_F(Textures, a_missing_file_is_found_by_the_next_render)
{
    const std::string file = folder.file("late.tif");
    for (int call = 0; call < 300; ++call)
        expectColor(look(file, 0.5f, 0.5f), error_color);
    takeProblems();
    rv::applyTextureOptions();
    expectColor(look(file, 0.5f, 0.5f), error_color);
    EXPECT_NE(takeProblem(), "") << "silent in the second render";
    writeImage(file, 4, 4, 1, u8, constant({ 1 }));
    rv::applyTextureOptions();
    EXPECT_EQ(look(file, 0.5f, 0.5f).r, 1);
}

TEST_F(Textures, the_open_file_limit_stays_above_the_files_in_use)
{
    RvNodeSetInt(options(), "texture_max_open_files", 2);
    for (int i = 0; i < 5; ++i) {
        const std::string file = folder.file(("f" + std::to_string(i) + ".tif").c_str());
        writeImage(file, 2, 2, 1, u8, constant({ 1 }));
        look(file, 0.5f, 0.5f);
    }
    EXPECT_GT(SharedSystem().value<int>("max_open_files"), 5);
}

TEST_F(Textures, statistics_describe_one_render)
{
    const std::string file = folder.file("counted.tif");
    writeImage(file, 64, 64, 4, u8, pattern);
    rv::applyTextureOptions();
    for (int i = 0; i < 10; ++i)
        look(file, 0.5f, 0.5f);
    EXPECT_GT(rv::textureCacheBytes(), 0);
    EXPECT_NE(rv::textureStatistics(1).find("10 queries"), std::string::npos);
    EXPECT_EQ(rv::textureStatistics(1).find("Image file statistics:"), std::string::npos);
    EXPECT_NE(rv::textureStatistics(2).find("Image file statistics:"), std::string::npos);
    EXPECT_NE(rv::textureStatistics(2).find("counted.tif"), std::string::npos);
    rv::applyTextureOptions();
    EXPECT_EQ(rv::textureStatistics(1).find("10 queries"), std::string::npos);
}

using TexturedImage = image_tools::Image;

TEST_F(TexturedImage, a_flush_while_a_render_runs_waits_for_its_end)
{
    const TextureFolder folder;
    const std::string file = folder.file("a.tif");
    const auto write = [&](float grey) { writeImage(file, 4, 4, 1, u8, constant({ grey })); };
    const auto look = [&] {
        const RtShaderGlobals sg = contextAt(0.5f, 0.5f);
        const RtTextureParams params = defaults();
        return RvTextureAccess(&sg, file.c_str(), &params).r;
    };
    write(0);
    makeScene(8, 8);
    std::vector<float> seen;
    image_tools::film().on_open = [&] {
        seen.push_back(look());
        write(1);
        RvUniverseCacheFlush(0x1);
        seen.push_back(look());
    };
    ASSERT_EQ(shoot(), RV_SUCCESS);
    EXPECT_EQ(seen, (std::vector<float>{ 0, 0 }));
    EXPECT_EQ(look(), 1);
    write(0);
    RvUniverseCacheFlush(0x1);
    EXPECT_EQ(look(), 0);
}

// The thread sanitizer sees races where there are none inside the image library, which is not built
// for it; so this is not a concurrent_ case.
TEST_F(TexturedImage, flushes_and_lookups_of_many_threads_do_not_meet)
{
    const TextureFolder folder;
    std::vector<std::string> files;
    for (int i = 0; i < 8; ++i) {
        files.push_back(folder.file(("f" + std::to_string(i) + ".tif").c_str()));
        writeImage(files.back(), 4, 4, 1, u8, constant({ 1 }));
    }
    makeScene(32, 32);
    set("threads", 4);
    set("bucket_size", 16);
    std::atomic<int> wrong = 0;
    image_tools::onShade() = [&](RtShaderGlobals*) {
        const RtShaderGlobals sg = contextAt(0.5f, 0.5f);
        const RtTextureParams params = defaults();
        for (const std::string& file : files)
            wrong += RvTextureAccess(&sg, file.c_str(), &params).r != 1;
    };
    std::atomic<bool> is_over = false;
    std::thread host([&] {
        while (!is_over)
            RvUniverseCacheFlush(0x1);
    });
    for (int render = 0; render < 3; ++render)
        EXPECT_EQ(shoot(), RV_SUCCESS);
    is_over = true;
    host.join();
    EXPECT_EQ(wrong, 0);
}

TEST_F(TexturedImage, a_render_looks_along_the_search_path_of_its_own_options)
{
    const TextureFolder red, green;
    writeRedAndGreen(red, green);
    makeScene(8, 8);
    RtNode* const image = node_tools::named("image", "image");
    RvNodeSetStr(image, "filename", "same.tif");
    RtNode* const flat = node_tools::named("flat", "flat");
    RvNodeLink(image, "color", flat);
    for (const char* shape : { "sphere", "wall" })
        RvNodeSetArray(RvNodeLookUpByName(shape), "shader", RvArray(1, 1, RV_TYPE_NODE, flat));
    for (const TextureFolder* folder : { &red, &green, &red }) {
        RvNodeSetStr(RvUniverseGetOptions(), "texture_searchpath", folder->path().c_str());
        RvUniverseCacheFlush(1);
        ASSERT_EQ(shoot(), RV_SUCCESS);
        EXPECT_EQ(image_tools::film().pixels[5].r, float(folder == &red));
        EXPECT_EQ(image_tools::film().pixels[5].g, float(folder == &green));
    }
}

TEST_F(TexturedImage, the_report_tells_of_textures_and_of_every_file_on_request)
{
    const TextureFolder folder;
    const std::string file = folder.file("wall.tif");
    writeImage(file, 16, 16, 3, u8, constant({ 0, 1, 0 }));
    makeScene(8, 8);
    RtNode* const image = node_tools::named("image", "image");
    RvNodeSetStr(image, "filename", file.c_str());
    RtNode* const flat = node_tools::named("flat", "flat");
    RvNodeLink(image, "color", flat);
    RvNodeSetArray(RvNodeLookUpByName("sphere"), "shader", RvArray(1, 1, RV_TYPE_NODE, flat));
    for (bool per_file : { false, true }) {
        setFlag("texture_per_file_stats", per_file);
        ASSERT_EQ(shoot(), RV_SUCCESS);
        bool has_cache = false, has_file = false;
        for (const std::string& line : takeLines()) {
            has_cache |= line.find("texture cache      ") != std::string::npos;
            has_file |= line.find("Image file statistics:") != std::string::npos;
        }
        EXPECT_TRUE(has_cache);
        EXPECT_EQ(has_file, per_file);
    }
}

TEST_F(TexturedImage, a_missing_texture_stops_the_render_with_few_messages)
{
    makeScene(32, 32);
    RtNode* const image = node_tools::named("image", "image");
    RvNodeSetStr(image, "filename", "no such file.tx");
    RtNode* const flat = node_tools::named("flat", "flat");
    RvNodeLink(image, "color", flat);
    for (const char* shape : { "sphere", "wall" })
        RvNodeSetArray(RvNodeLookUpByName(shape), "shader", RvArray(1, 1, RV_TYPE_NODE, flat));
    EXPECT_EQ(shoot(), RV_ABORT);
    EXPECT_NE(takeProblems().find("no such file.tx"), std::string::npos);
    setFlag("abort_on_error", false);
    set("AA_samples", 3);
    for (int render = 0; render < 2; ++render) {
        EXPECT_EQ(shoot(), RV_SUCCESS);
        const image_tools::Names lines = takeLines();
        const auto count = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("no such file.tx") != std::string::npos;
        });
        EXPECT_GE(count, 1);
        EXPECT_LT(count, 150);
        EXPECT_EQ(image_tools::film().pixels[5].r, 1);
        EXPECT_EQ(image_tools::film().pixels[5].g, 0);
    }
}

} // namespace
