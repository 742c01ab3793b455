// `ruvell convert`: reads a scene or an OBJ file and writes a scene.
#include "activity.h"
#include "command.h"
#include "outputs.h"
#include "report.h"
#include "scene.h"
#include "scene_paths.h"
#include "text.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
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
    if (access(file.c_str(), R_OK) != 0 || isFolder(file)) {
        reportError(file + ": " + std::strerror(isFolder(file) ? EISDIR : errno));
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

// The library replaces an older file in one step, once the new one is complete.
static bool writeOutput()
{
    const Activity activity("writing " + settings.output, settings.scene.log.quiet);
    int result = 0;
    const auto messages = captureMessages([&] {
        result = RvRVSWrite(settings.output.c_str(), RV_NODE_ALL, isObjFile(settings.input));
    });
    showMessages(messages);
    const bool has_error = std::any_of(messages.begin(), messages.end(), [](const auto& message) {
        return message.severity >= severity_error;
    });
    if (result != 0)
        reportError("cannot write " + settings.output);
    else if (has_error)
        reportError(settings.output + " lacks what could not be converted");
    return result == 0 && !has_error;
}

static int run(CLI::App&)
{
    if (!openLog(settings.scene.log) || !checkSceneFile(settings.output))
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
