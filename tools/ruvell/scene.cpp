// Opening universes and loading scenes.
#include "scene.h"
#include "activity.h"
#include "option_values.h"
#include "report.h"
#include "text.h"
#include <algorithm>
#include <sstream>

namespace ruvell {

// ---- Options ----

void addPluginOption(CLI::App& app, SceneSettings& settings)
{
    addRepeatable(app, "--plugins", settings.plugin_dirs,
                  "Load the plug-ins in DIR first; may be repeated", "DIR", CLI::ExistingDirectory);
}

void addSceneFiles(CLI::App& app, std::vector<std::string>& files)
{
    app.add_option("SCENE", files, "Scene files, loaded in order; - is standard input")
        ->required()
        ->type_name("")
        ->check(checkName);
}

void addSceneOptions(CLI::App& app, SceneSettings& settings)
{
    addPluginOption(app, settings);
    addRepeatable(app, "--search", settings.search_dirs,
                  "Look for included files, procedurals and textures in DIR too; may be repeated",
                  "DIR", CLI::ExistingDirectory);
    addSafetyOptions(app, settings.safety);
    addLogOptions(app, settings.log);
}

void addSceneArguments(CLI::App& app, std::vector<std::string>& files, bool& is_json,
                       SceneSettings& settings)
{
    addSceneFiles(app, files);
    app.add_flag("--json", is_json, "Print JSON");
    addSceneOptions(app, settings);
}

// ---- Universe ----

Universe::Universe(const SceneSettings& settings)
{
    RvBegin();
    attachLog();
    if (!settings.plugin_dirs.empty())
        RvLoadPlugins(joined(settings.plugin_dirs, ";").c_str());
}

Universe::~Universe() { RvEnd(); }

// ---- Loading ----

static bool listHas(const std::string& list, const std::string& dir)
{
    std::istringstream entries(list);
    for (std::string entry; std::getline(entries, entry, ';');)
        if (entry == dir)
            return true;
    return false;
}

// Appends the directories to a search path of the options, unless they are in it.
static void extendSearchPath(const char* option, const std::vector<std::string>& dirs)
{
    RtNode* options = RvUniverseGetOptions();
    std::string path = RvNodeGetStr(options, option);
    for (const std::string& dir : dirs)
        if (!listHas(path, dir))
            path += (path.empty() ? "" : ";") + dir;
    RvNodeSetStr(options, option, path.c_str());
}

// The options block of a scene replaces the paths, so they are extended before and after a load.
static void extendSearchPaths(const SceneSettings& settings)
{
    if (settings.search_dirs.empty())
        return;
    extendSearchPath("procedural_searchpath", settings.search_dirs);
    extendSearchPath("texture_searchpath", settings.search_dirs);
}

int loadScene(const SceneSettings& settings, const std::string& file)
{
    extendSearchPaths(settings);
    const int result = RvRVSLoad(file.c_str());
    extendSearchPaths(settings);
    return result;
}

TrustedPaths trustedPaths(const SceneSettings& settings)
{
    TrustedPaths trusted;
    trusted.searched = settings.search_dirs;
    trusted.read = settings.plugin_dirs;
    trusted.written = settings.written_files;
    trusted.has_plugins = !settings.plugin_dirs.empty();
    trusted.frame = settings.frame;
    return trusted;
}

static bool loadAndShow(const SceneSettings& settings, const SceneSource& source)
{
    const Activity activity("loading " + source.shown, settings.log.quiet);
    int result = 0;
    std::vector<LoadMessage> messages =
        captureMessages([&] { result = loadScene(settings, source.path); });
    for (LoadMessage& message : messages)
        if (message.file == source.path)
            message.file = source.shown;
    showMessages(messages);
    if (settings.safety.is_on)
        for (const LoadMessage& message : messages)
            explainLackOfMemory(message.text);
    if (result != 0)
        reportError("cannot load " + source.shown);
    return result == 0;
}

static bool lookAtScenes(const SceneSettings& settings, const SceneSources& sources)
{
    const Activity activity("looking at the scene", settings.log.quiet);
    return prepareScenes(sources, settings.safety, trustedPaths(settings));
}

bool loadScenes(const SceneSettings& settings, const std::vector<std::string>& files)
{
    const SceneSources sources(files);
    if (!lookAtScenes(settings, sources))
        return false;
    return std::all_of(sources.list().begin(), sources.list().end(),
                       [&](const SceneSource& source) { return loadAndShow(settings, source); });
}

// ---- Nodes ----

std::vector<RtNode*> nodesOfKind(unsigned int mask)
{
    std::vector<RtNode*> nodes;
    RtNodeIterator* it = RvUniverseGetNodeIterator(mask);
    while (!RvNodeIteratorFinished(it))
        nodes.push_back(RvNodeIteratorGetNext(it));
    RvNodeIteratorDestroy(it);
    return nodes;
}

std::vector<std::string> namesOf(const std::vector<RtNode*>& nodes)
{
    std::vector<std::string> names;
    for (const RtNode* node : nodes)
        names.emplace_back(RvNodeGetName(node));
    return names;
}

} // namespace ruvell
