// `ruvell maketx`: makes tiled, MIP-mapped textures of images, with the image library's own maker.
#include "activity.h"
#include "command.h"
#include "confine.h"
#include "outputs.h"
#include "report.h"
#include "safe.h"
#include "watch.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace ruvell {

namespace fs = std::filesystem;
using OIIO::ImageBufAlgo::MakeTextureMode;

namespace {

struct MaketxSettings {
    std::vector<std::string> inputs;
    std::string output;
    std::string wrap = "black";
    std::string filter = "box";
    std::string format;
    int tile = 64;
    bool is_environment = false;
    bool fix_nan = false;
    bool update = false;
    bool is_quiet = false;
    SafetySettings safety;
};

} // namespace

static MaketxSettings settings;

static void setup(CLI::App& app)
{
    app.add_option("IN", settings.inputs, "The images to make textures of")
        ->required()
        ->type_name("");
    app.add_option(
           "-o,--output", settings.output,
           "The texture to write, for one image; otherwise beside each image, ending in .tx")
        ->type_name("FILE");
    app.add_option(
           "--wrap", settings.wrap,
           "What lookups with the wrap \"file\" see beyond the edges: black (unless given), "
           "clamp, periodic or mirror")
        ->type_name("MODE")
        ->check(CLI::IsMember({ "black", "clamp", "periodic", "mirror" }))
        ->capture_default_str();
    app.add_option(
           "--filter", settings.filter,
           "The filter that makes the smaller levels: box (unless given), triangle or lanczos3")
        ->type_name("NAME")
        ->check(CLI::IsMember({ "box", "triangle", "lanczos3" }))
        ->capture_default_str();
    app.add_option(
           "--format", settings.format,
           "The type of the pixels: uint8, uint16, half or float; as the image unless given")
        ->type_name("TYPE")
        ->check(CLI::IsMember({ "uint8", "uint16", "half", "float" }));
    app.add_option("--tile", settings.tile,
                   "The side of the tiles in pixels: 16, 32, 64 (unless given), 128, 256 or 512")
        ->type_name("N")
        ->check(CLI::IsMember({ 16, 32, 64, 128, 256, 512 }))
        ->capture_default_str();
    app.add_flag("--env", settings.is_environment,
                 "The image is a latitude-longitude environment map: its poles are blended");
    app.add_flag("--fix-nan", settings.fix_nan,
                 "Replace pixels that are not finite by their neighbours");
    app.add_flag("-u,--update", settings.update,
                 "Leave a texture alone that is newer than its image");
    app.add_flag("-q,--quiet", settings.is_quiet, "Do not list the textures that were written");
    addMemoryOption(app, settings.safety, addSafeFlag(app, settings.safety));
}

// The file itself, where a link leads to it, so that the link stays.
static std::string textureName(const std::string& input)
{
    const fs::path path = settings.output.empty() ? fs::path(input).replace_extension(".tx")
                                                  : fs::path(settings.output);
    std::error_code error;
    const bool is_link = fs::is_symlink(path, error);
    const fs::path target = is_link ? fs::weakly_canonical(path, error) : path;
    return (error ? path : target).string();
}

static bool isUpToDate(const std::string& input, const std::string& output)
{
    std::error_code error;
    const auto made = fs::last_write_time(output, error);
    if (error)
        return false;
    const auto changed = fs::last_write_time(input, error);
    return !error && changed <= made;
}

static OIIO::ImageSpec configuration()
{
    OIIO::ImageSpec config;
    config.tile_width = config.tile_height = settings.tile;
    config.attribute("wrapmodes", settings.wrap + "," + settings.wrap);
    config.attribute("maketx:filtername", settings.filter);
    config.attribute("maketx:fixnan", settings.fix_nan ? "box3" : "none");
    if (!settings.format.empty())
        config.set_format(OIIO::TypeDesc(settings.format));
    return config;
}

// The first line of what the maker has to say, which may be many of a kind.
static std::string firstLine(const std::string& text)
{
    const size_t start = text.find_first_not_of(" \n");
    return start == std::string::npos ? "" : text.substr(start, text.find('\n', start) - start);
}

// ---- Memory ----

static uint64_t memoryBound()
{
    return settings.safety.is_on ? maxMemory(settings.safety) : physicalMemory();
}

static std::string memoryProblem(const std::string& what)
{
    return what + " needs more memory than the " + std::to_string(memoryBound() >> 20) +
           (settings.safety.is_on ? " MB of --max-memory" : " MB of this machine");
}

// The maker holds all pixels, as they are or in floating point, and more: a header is enough to
// tell what will not do.
static std::string checkMemoryFor(OIIO::ImageSpec pixels)
{
    const uint64_t size = pixels.image_bytes(true);
    pixels.set_format(OIIO::TypeFloat);
    if (std::max<uint64_t>(size, pixels.image_bytes()) <= memoryBound())
        return "";
    return memoryProblem("an image of " + std::to_string(pixels.width) + " x " +
                         std::to_string(pixels.height) + " pixels");
}

// ---- The work ----

// Makes the texture under another name; what is wrong, or nothing.
static std::string make(const std::string& input, const std::string& part)
{
    OIIO::ImageBuf image(input);
    if (!image.init_spec(input, 0, 0))
        return firstLine(image.geterror());
    if (image.nativespec().width < 1 || image.nativespec().height < 1)
        return "the image has no pixels";
    if (const std::string problem = checkMemoryFor(image.nativespec()); !problem.empty())
        return problem;
    if (!image.read())
        return firstLine(image.geterror());
    const MakeTextureMode mode = settings.is_environment ? OIIO::ImageBufAlgo::MakeTxEnvLatl
                                                         : OIIO::ImageBufAlgo::MakeTxTexture;
    OIIO::ImageSpec config = configuration();
    if (settings.format.empty())
        config.set_format(image.nativespec().format);
    std::ostringstream messages;
    if (OIIO::ImageBufAlgo::make_texture(mode, image, part, config, &messages))
        return "";
    const std::string text = firstLine(OIIO::geterror() + "\n" + messages.str());
    return text.empty() ? "the texture could not be written" : text;
}

// What the names of unfinished files begin with.
static std::string unfinishedPrefix() { return ".ruvell-" + std::to_string(getpid()) + "-"; }

// Beside the output, so that it can take its place in one step. Its extension tells the maker the
// format of the file.
static std::string partName(const std::string& output)
{
    const fs::path path(output);
    return (path.parent_path() / (unfinishedPrefix() + path.filename().string())).string();
}

// The maker has a file of its own beside the part, whose name only begins as we know.
static void removeUnfinishedBeside(const std::string& output)
{
    std::error_code error;
    const fs::path folder = fs::absolute(output, error).parent_path();
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, error))
        if (entry.path().filename().string().rfind(unfinishedPrefix(), 0) == 0)
            fs::remove(entry.path(), error);
}

// While a texture is under way only threads end the process, which can search folders. Before and
// after that it may be the handler of a signal, which could not.
static std::atomic<bool> is_making = false;

static void removeUnfinished() noexcept
try {
    if (!is_making)
        return;
    for (const std::string& input : settings.inputs)
        removeUnfinishedBeside(textureName(input));
} catch (const std::exception&) { // there may be no memory left
}

// Makes the texture and moves it to its place; what is wrong, or nothing.
static std::string makeInPlace(const std::string& input, const std::string& output)
{
    const std::string part = partName(output);
    std::string problem;
    try {
        problem = make(input, part);
    } catch (const std::system_error&) { // there is no place for the stacks of threads
        problem = memoryProblem("making the texture");
    } catch (const std::exception& e) {
        problem = e.what();
    }
    if (problem.empty() && std::rename(part.c_str(), output.c_str()) != 0)
        problem = "cannot write " + output + ": " + std::strerror(errno);
    if (!problem.empty())
        removeUnfinishedBeside(output);
    return problem;
}

// True once the texture is in its place, whole; an older one stays as it was until then.
static bool makeTexture(const std::string& input, const std::string& output,
                        const std::string& which)
{
    leaveWithoutMemory(memoryProblem(input + ": making the texture"));
    const Activity activity(which + input, settings.is_quiet);
    is_making = true;
    const std::string problem = makeInPlace(input, output);
    is_making = false;
    if (!problem.empty())
        reportError(input + ": " + problem);
    return problem.empty();
}

// Neither the image itself nor something that could not be put aside is overwritten.
static bool checkFiles(const std::string& input, const std::string& output)
{
    std::error_code error;
    if (!fs::exists(input, error)) {
        reportError(input + ": No such file or directory");
        return false;
    }
    if (fs::is_directory(input, error)) {
        reportError(input + ": Is a directory");
        return false;
    }
    if (!fs::is_regular_file(input, error)) {
        reportError(input + ": not a file");
        return false;
    }
    if (fs::equivalent(input, output, error)) {
        reportError(input + ": the texture would overwrite its image");
        return false;
    }
    if (fs::exists(output, error) && !fs::is_regular_file(output, error)) {
        reportError(output + ": not a file that a texture could replace");
        return false;
    }
    return checkImageFile(output);
}

static bool process(const std::string& input, const std::string& which)
{
    const std::string output = textureName(input);
    if (!checkFiles(input, output))
        return false;
    if (settings.update && isUpToDate(input, output))
        return true;
    if (!makeTexture(input, output, which))
        return false;
    if (!settings.is_quiet)
        std::printf("%s\n", output.c_str());
    std::fflush(stdout);
    return true;
}

static int run(CLI::App&)
{
    if (!settings.output.empty() && settings.inputs.size() > 1) {
        reportError("--output names one texture, but there are several images");
        return exit_usage;
    }
    std::map<std::string, std::string> images; // of each texture
    for (const std::string& input : settings.inputs) {
        const auto [place, is_new] = images.emplace(textureName(input), input);
        if (!is_new) {
            reportError(place->second + " and " + input + " would both become " + place->first);
            return exit_usage;
        }
    }
    TrustedPaths trusted;
    trusted.read = settings.inputs;
    for (const std::string& input : settings.inputs)
        trusted.written.push_back(textureName(input));
    confineWithoutScenes(settings.safety, trusted);
    std::at_quick_exit(removeUnfinished);
    const Watch watch;
    boundMemory(settings.safety);
    bool has_failed = false;
    const size_t count = settings.inputs.size();
    for (size_t i = 0; i < count; ++i) {
        const std::string which = std::to_string(i + 1) + " of " + std::to_string(count) + ": ";
        has_failed |= !process(settings.inputs[i], count > 1 ? which : "");
    }
    return has_failed ? exit_failure : exit_success;
}

const Command command_maketx = {
    .name = "maketx",
    .summary = "Make tiled, MIP-mapped textures of images",
    .setup = setup,
    .run = run,
    .footer = "Examples:\n"
              "  ruvell maketx textures/*.png\n"
              "  ruvell maketx --env --format half studio.hdr -o studio.tx",
};

} // namespace ruvell
