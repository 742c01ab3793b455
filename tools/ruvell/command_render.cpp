// `ruvell render`: scenes in, images out.
#include "assignments.h"
#include "command.h"
#include "frames.h"
#include "option_values.h"
#include "outputs.h"
#include "progress.h"
#include "report.h"
#include "scene.h"
#include "statistics.h"
#include "watch.h"
#include <algorithm>
#include <cmath>
#include <iostream>
#include <nlohmann/json.hpp>
#include <regex>

namespace ruvell {

using Json = nlohmann::ordered_json;

namespace {

struct RenderSettings {
    SceneSettings scene;
    std::vector<std::string> files;
    std::string output;
    std::string resolution;
    std::vector<int> crop;
    int aa_samples = 0;
    int threads = 0;
    int seed = 0;
    std::string camera;
    std::vector<std::string> assignments;
    std::string frames;
    std::string timeout;
    std::string grace = "1m";
    uint64_t max_pixels = 1 << 28;
    bool shows_statistics = false;
    std::string statistics_file;
};

// What is given on the command line may be 0, so whether it is given is asked of the option.
struct GivenOptions {
    CLI::Option* aa_samples;
    CLI::Option* threads;
    CLI::Option* seed;
};

// What is rendered, one after the other; without a number when there is no sequence.
using Frames = std::vector<std::optional<int>>;

struct Size {
    int width, height;
};

} // namespace

static RenderSettings settings;
static GivenOptions given;

// ---- Options ----

static constexpr int max_side = 65535; // as much as most formats of images can tell

static std::optional<Size> parseResolution(const std::string& text)
{
    static const std::regex form("([0-9]{1,6})[xX]([0-9]{1,6})");
    std::smatch part;
    if (!std::regex_match(text, part, form))
        return std::nullopt;
    const Size size{ std::atoi(part[1].str().c_str()), std::atoi(part[2].str().c_str()) };
    const auto is_side = [](int pixels) { return pixels > 0 && pixels <= max_side; };
    return is_side(size.width) && is_side(size.height) ? std::optional(size) : std::nullopt;
}

static std::string checkResolution(const std::string& text)
{
    return parseResolution(text) ? ""
                                 : "'" + text + "' is not a size such as 640x480, of at most " +
                                       std::to_string(max_side) + " pixels each way";
}

static std::string checkFrames(const std::string& text)
{
    return parseFrames(text) ? "" : "'" + text + "' is not a range such as 1-20 or 1-20x2";
}

static void setupImageOptions(CLI::App& app)
{
    app.add_option("-o,--output", settings.output,
                   "Write the image to FILE; its extension chooses the driver. Needed when the "
                   "scene has no outputs, and otherwise in place of them")
        ->type_name("FILE")
        ->check(checkName);
    app.add_option("-r,--resolution", settings.resolution, "Size of the image in pixels")
        ->type_name("WxH")
        ->check(checkResolution);
    app.add_option("--crop", settings.crop,
                   "Render only the pixels from X0 Y0 to X1 Y1, both included")
        ->type_name("X0 Y0 X1 Y1")
        ->expected(4);
    given.aa_samples =
        app.add_option("--aa", settings.aa_samples,
                       "N x N camera samples per pixel; below 0 every 2^-N-th pixel only")
            ->type_name("N")
            ->check(wholeNumber(-16, 64));
    app.add_option("--camera", settings.camera, "Look through the camera NAME")
        ->type_name("NAME")
        ->check(checkName);
    given.seed = app.add_option("--seed", settings.seed, "Seed of the sampling patterns")
                     ->type_name("N")
                     ->check(wholeNumber(INT32_MIN, INT32_MAX));
}

static void setupSceneOptions(CLI::App& app)
{
    addRepeatable(app, "-D,--define", settings.assignments,
                  "Set a parameter, with the value written as in a scene file, or link it to a "
                  "node; may be repeated",
                  "NODE.PARAM=VALUE", CLI::Validator(checkAssignment, "", ""));
    app.add_option("--frames", settings.frames,
                   "Render the frames A to B, every STEPth, one after the other; the number goes "
                   "where names of scenes and outputs have #### or %04d")
        ->type_name("A-BxSTEP")
        ->check(checkFrames);
    addSceneOptions(app, settings.scene);
    app.add_option("--max-pixels", settings.max_pixels,
                   "With --safe: bound of the pixels of an image; 268435456, which is 16384x16384, "
                   "unless given")
        ->type_name("N")
        ->check(wholeNumber(1, INT64_MAX))
        ->needs(app.get_option("--safe"));
}

static void setupRunOptions(CLI::App& app)
{
    given.threads =
        app.add_option("-t,--threads", settings.threads, "Number of threads; 0 for one per core")
            ->type_name("N")
            ->check(wholeNumber(0, 64));
    app.add_option("--timeout", settings.timeout,
                   "Stop as Ctrl-C does when DURATION has passed: 90s, 2m, 1h30m")
        ->type_name("DURATION")
        ->check(checkDuration);
    app.add_option("--grace", settings.grace,
                   "How long the render may take to stop, once --timeout or Ctrl-C has told it to, "
                   "before the command ends without the image; 1m unless given")
        ->type_name("DURATION")
        ->check(checkDuration);
    app.add_flag("--stats", settings.shows_statistics, "Print the statistics report");
    app.add_option("--stats-json", settings.statistics_file, "Write the statistics to FILE as JSON")
        ->type_name("FILE")
        ->check(checkName);
}

static void setup(CLI::App& app)
{
    addSceneFiles(app, settings.files);
    setupImageOptions(app);
    setupSceneOptions(app);
    setupRunOptions(app);
}

// ---- The scene as the command line wants it ----

static void applyResolution(RtNode* options)
{
    if (const auto size = parseResolution(settings.resolution)) {
        RvNodeSetInt(options, "xres", size->width);
        RvNodeSetInt(options, "yres", size->height);
    }
    static const char* const bounds[] = { "region_min_x", "region_min_y", "region_max_x",
                                          "region_max_y" };
    if (!settings.crop.empty())
        for (size_t i = 0; i < 4; ++i)
            RvNodeSetInt(options, bounds[i], settings.crop[i]);
    else if (!settings.resolution.empty())
        for (const char* bound : bounds)
            RvNodeSetInt(options, bound, -1); // a region of the scene means pixels of its own size
}

static void applyOptions()
{
    RtNode* options = RvUniverseGetOptions();
    applyResolution(options);
    if (given.aa_samples->count() > 0)
        RvNodeSetInt(options, "AA_samples", settings.aa_samples);
    if (given.threads->count() > 0)
        RvNodeSetInt(options, "threads", settings.threads);
    if (given.seed->count() > 0)
        RvNodeSetInt(options, "AA_seed", settings.seed);
}

static bool applyCamera()
{
    if (settings.camera.empty())
        return true;
    const auto cameras = nodesOfKind(RV_NODE_CAMERA);
    for (RtNode* camera : cameras)
        if (settings.camera == RvNodeGetName(camera)) {
            RvNodeSetPtr(RvUniverseGetOptions(), "camera", camera);
            return true;
        }
    reportError("there is no camera '" + settings.camera + "'" +
                suggestion(nearestNames(settings.camera, namesOf(cameras))));
    return false;
}

static bool applyOutput()
{
    if (settings.output.empty())
        return true;
    if (const std::string problem = checkOutputName(settings.output); !problem.empty()) {
        reportError(problem);
        return false;
    }
    redirectOutputs(settings.output);
    return true;
}

static std::vector<std::string> filesOfFrame(std::optional<int> frame)
{
    std::vector<std::string> files = settings.files;
    if (frame)
        for (std::string& file : files)
            file = withFrame(file, *frame);
    return files;
}

// Of a scene from strangers: its images grow on the disk.
static bool checkPixels()
{
    const RtNode* options = RvUniverseGetOptions();
    const int64_t width = std::max(RvNodeGetInt(options, "xres"), 0);
    const int64_t height = std::max(RvNodeGetInt(options, "yres"), 0);
    const auto pixels = static_cast<uint64_t>(width * height);
    if (!settings.scene.safety.is_on || pixels <= settings.max_pixels)
        return true;
    reportError("not allowed in safe mode: an image of " + std::to_string(width) + " x " +
                std::to_string(height) + " pixels, more than the " +
                std::to_string(settings.max_pixels) + " of --max-pixels");
    return false;
}

// All that must be in order before the first bucket.
static bool prepareScene(std::optional<int> frame)
{
    settings.scene.frame = frame;
    if (!loadScenes(settings.scene, filesOfFrame(frame)))
        return false;
    applyOptions();
    if (!applyAssignments(settings.assignments) || !checkPixels() || !applyCamera() ||
        !applyOutput())
        return false;
    if (frame)
        numberOutputs(*frame);
    return checkOutputFolders();
}

// ---- The render ----

namespace {

// What a render leaves behind, one for each frame.
struct Renders {
    Progress progress;
    std::vector<StatisticsLine> statistics; // of the running frame
    StatisticsFile file;
};

} // namespace

static void listen(Renders& renders)
{
    if (!settings.scene.log.quiet)
        setListener(RV_LOG_PROGRESS,
                    [&](int, const std::string& text, int) { renders.progress.receive(text); });
    if (settings.shows_statistics || !settings.statistics_file.empty())
        setListener(RV_LOG_STATS, [&](int, const std::string& text, int tab) {
            renders.statistics.push_back({ text, tab });
        });
}

static void printStatistics(const std::vector<StatisticsLine>& lines)
{
    for (const auto& [text, tab] : lines)
        std::cout << std::string(static_cast<size_t>(2 * tab), ' ') << text << '\n';
    std::cout.flush();
}

static const char* describe(int result)
{
    switch (result) {
    case RV_SUCCESS: return "finished";
    case RV_ABORT: return "aborted because of errors";
    case RV_INTERRUPT: return "interrupted";
    case RV_ERROR_NO_CAMERA: return "there is no camera";
    case RV_ERROR_BAD_REGION: return "the region to render is not within the image";
    case RV_ERROR_NO_OUTPUTS: return "no output can be written";
    case RV_ERROR_UNRENDERABLE: return "the scene cannot be rendered any more";
    default: return "the render failed";
    }
}

static Json outputList()
{
    Json list = Json::array();
    for (const OutputStatement& statement : outputStatements())
        list.push_back({ { "statement", statement.text }, { "file", outputFile(statement) } });
    return list;
}

static Json recordOf(std::optional<int> frame, int result, double seconds,
                     const std::vector<StatisticsLine>& statistics)
{
    RtNode* options = RvUniverseGetOptions();
    Json record;
    record["frame"] = frame ? Json(*frame) : Json();
    record["scenes"] = filesOfFrame(frame);
    record["result"] = describe(result);
    record["width"] = RvNodeGetInt(options, "xres");
    record["height"] = RvNodeGetInt(options, "yres");
    record["threads"] = RvNodeGetInt(options, "threads");
    record["seconds"] = seconds;
    record["peak_memory_bytes"] = peakMemory();
    record["outputs"] = outputList();
    record["sections"] = statisticsSections(statistics);
    return record;
}

static void confineToAll(const Frames& frames)
{
    std::vector<FrameFiles> all;
    SceneSettings scene = settings.scene;
    for (const std::optional<int> frame : frames) {
        scene.frame = frame;
        all.push_back({ filesOfFrame(frame), trustedPaths(scene) });
    }
    confineToFrames(settings.scene.safety, all);
}

static int renderFrame(Watch& watch, Renders& renders, const Frames& frames, size_t index)
{
    const auto start = std::chrono::steady_clock::now();
    const std::optional<int> frame = frames[index];
    const Universe universe(settings.scene);
    if (settings.scene.safety.is_on && frames.size() > 1 && index == 0)
        confineToAll(frames);
    if (!prepareScene(frame))
        return exit_failure;
    renders.statistics.clear();
    renders.progress.begin(frame ? "frame " + std::to_string(*frame) + ": " : "");
    const int result = watch.render();
    renders.progress.end();

    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    if (settings.shows_statistics)
        printStatistics(renders.statistics);
    renders.file.add(recordOf(frame, result, elapsed.count(), renders.statistics));
    if (result == RV_SUCCESS || result == RV_INTERRUPT)
        return watch.stopCode();
    reportError(describe(result));
    return exit_failure;
}

// ---- The command ----

// What the options forbid together, or alone.
static std::string usageProblem(const std::optional<std::vector<int>>& frames)
{
    if (std::count(settings.files.begin(), settings.files.end(), "-") > 1)
        return "standard input can be read only once";
    if (frames && frames->size() > 1 &&
        std::count(settings.files.begin(), settings.files.end(), "-") > 0)
        return "standard input can be read for one frame only";
    const auto& crop = settings.crop;
    if (!crop.empty() && (crop[0] < 0 || crop[1] < 0 || crop[2] < crop[0] || crop[3] < crop[1]))
        return "--crop needs 0 <= X0 <= X1 and 0 <= Y0 <= Y1";
    if (frames && frames->size() > 1 && !settings.output.empty() && !hasFramePlace(settings.output))
        return "--output needs a place for the number of the frame, such as image.####.png";
    return "";
}

static int renderFrames(const Frames& frames)
{
    Renders renders;
    if (!renders.file.open(settings.statistics_file))
        return exit_failure;
    Watch watch(parseDuration(settings.timeout), *parseDuration(settings.grace),
                [&] { renders.progress.refresh(); });
    listen(renders);
    int code = exit_success;
    for (size_t i = 0; i < frames.size() && code == exit_success; ++i)
        code = renderFrame(watch, renders, frames, i);
    const bool is_written = renders.file.close();
    return code == exit_success && !is_written ? exit_failure : code;
}

static int run(CLI::App&)
{
    const auto range = parseFrames(settings.frames);
    if (const std::string problem = usageProblem(range); !problem.empty()) {
        reportError(problem);
        return exit_usage;
    }
    if (!openLog(settings.scene.log))
        return exit_failure;
    if (!settings.output.empty())
        settings.scene.written_files = { settings.output };
    Frames frames{ std::nullopt };
    if (range)
        frames.assign(range->begin(), range->end());
    return renderFrames(frames);
}

const Command command_render = {
    .name = "render",
    .summary = "Render scenes to images",
    .setup = setup,
    .run = run,
    .footer = "Examples:\n"
              "  ruvell render room.rvs -o room.png -r 1280x720 --aa 4\n"
              "  ruvell render room.rvs lights.rvs -D options.GI_diffuse_depth=2\n"
              "  ruvell render room.####.rvs -o out/room.####.exr --frames 1-100x10\n"
              "  zcat room.rvs.gz | ruvell render - -o room.jpg --timeout 2m",
};

} // namespace ruvell
