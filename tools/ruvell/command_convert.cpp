// `ruvell convert`: reads a scene or an OBJ file and writes a scene.
#include "command.h"
#include "outputs.h"
#include "report.h"
#include "scene.h"
#include "text.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace ruvell {

namespace {

struct ConvertSettings {
    SceneSettings scene;
    std::string input;
    std::string output;
};

} // namespace

static ConvertSettings settings;

static bool isObjFile(const std::string& name) { return lowered(name).ends_with(".obj"); }

static std::string checkOutput(const std::string& name)
{
    return name.ends_with(".rvs") || name.ends_with(".rvs.gz")
               ? ""
               : "'" + name + "' does not end in .rvs or .rvs.gz";
}

static void setup(CLI::App& app)
{
    app.add_option("IN", settings.input, "A scene (.rvs, .rvs.gz, - for standard input) or .obj")
        ->required()
        ->type_name("");
    app.add_option("OUT", settings.output, "The scene to write, .rvs or compressed .rvs.gz")
        ->required()
        ->type_name("")
        ->check(checkOutput);
    addSceneOptions(app, settings.scene);
}

// The writer expands procedurals, so an OBJ file is read as the contents of one.
static bool loadObjFile(const std::string& file)
{
    if (access(file.c_str(), R_OK) != 0) {
        reportError(file + ": " + std::strerror(errno));
        return false;
    }
    TrustedPaths trusted = trustedPaths(settings.scene);
    trusted.read.push_back(file);
    if (!prepareScenes(SceneSources({}), settings.scene.safety, trusted))
        return false;
    RtNode* procedural = RvNode("procedural");
    RvNodeSetStr(procedural, "dso", file.c_str());
    return procedural != nullptr;
}

static bool loadInput()
{
    return isObjFile(settings.input) ? loadObjFile(settings.input)
                                     : loadScenes(settings.scene, { settings.input });
}

// Beside the output, so that it can take its place in one step, with an extension that the writer
// knows.
static std::string temporaryName()
{
    const std::filesystem::path path(settings.output);
    const std::string name = ".ruvell-" + std::to_string(getpid()) + "-" + path.filename().string();
    return (path.parent_path() / name).string();
}

// An older file that is replaced hands on who may use it.
static void takePermissions(const std::string& file)
{
    std::error_code error;
    const auto older = std::filesystem::status(settings.output, error);
    if (std::filesystem::exists(older))
        std::filesystem::permissions(file, older.permissions(), error);
}

// The block of an "override" node would be read as a statement of that name.
static constexpr unsigned written_kinds = RV_NODE_ALL & ~RV_NODE_OVERRIDE;

static bool writeOutput()
{
    const std::string temporary = temporaryName();
    int result = 0;
    const auto messages = captureMessages(
        [&] { result = RvRVSWrite(temporary.c_str(), written_kinds, isObjFile(settings.input)); });
    showMessages(messages);
    const bool has_error = std::any_of(messages.begin(), messages.end(), [](const auto& message) {
        return message.severity >= severity_error;
    });
    takePermissions(temporary);
    if (result == 0 && !has_error && std::rename(temporary.c_str(), settings.output.c_str()) == 0)
        return true;
    reportError("cannot write " + settings.output);
    unlink(temporary.c_str());
    return false;
}

static int run(CLI::App&)
{
    if (!openLog(settings.scene.log) || !checkFolderOf(settings.output))
        return exit_failure;
    settings.scene.written_files = { settings.output };
    const Universe universe(settings.scene);
    return loadInput() && writeOutput() ? exit_success : exit_failure;
}

const Command command_convert = {
    .name = "convert",
    .summary = "Convert scenes and OBJ files to scenes, plain or compressed",
    .setup = setup,
    .run = run,
    .footer = "Examples:\n"
              "  ruvell convert model.obj model.rvs\n"
              "  ruvell convert room.rvs room.rvs.gz",
};

} // namespace ruvell
