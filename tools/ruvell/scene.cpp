// Opening universes and loading scenes.
#include "scene.h"
#include "report.h"
#include "text.h"
#include <sstream>

namespace ruvell {

// ---- Options ----

void addPluginOption(CLI::App& app, SceneSettings& settings)
{
    app.add_option("--plugins", settings.plugin_dirs,
                   "Load the plug-ins in DIR first; may be repeated")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void addSceneOptions(CLI::App& app, SceneSettings& settings)
{
    addPluginOption(app, settings);
    app.add_option("--search", settings.search_dirs,
                   "Look for included files, procedurals and textures in DIR too; may be repeated")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    addLogOptions(app, settings.log);
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

static bool loadScene(const std::string& file)
{
    int result = 0;
    showMessages(captureMessages([&] { result = RvRVSLoad(file.c_str()); }));
    if (result != 0)
        reportError("cannot load " + (file == "-" ? "standard input" : file));
    return result == 0;
}

bool loadScenes(const SceneSettings& settings, const std::vector<std::string>& files)
{
    extendSearchPaths(settings);
    for (const std::string& file : files) {
        if (!loadScene(file))
            return false;
        extendSearchPaths(settings);
    }
    return true;
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
