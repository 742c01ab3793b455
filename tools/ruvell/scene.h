// Universes and what is loaded into them, the same for every sub-command that reads scenes.
#ifndef RUVELL_SCENE_H
#define RUVELL_SCENE_H

#include "library_log.h"
#include "safe.h"
#include <CLI/CLI.hpp>
#include <optional>
#include <ruvell/rv.h>
#include <string>
#include <vector>

namespace ruvell {

struct SceneSettings {
    std::vector<std::string> plugin_dirs;
    std::vector<std::string> search_dirs;
    LogSettings log;
    SafetySettings safety;
    std::vector<std::string> written_files; // outputs, as the options of the command say
    std::optional<int> frame;               // of a sequence, while it is loaded and rendered
};

// Declares the scenes on the command line.
void addSceneFiles(CLI::App& app, std::vector<std::string>& files);

// Declares --plugins, --search, the options of safe mode and those of the log.
void addSceneOptions(CLI::App& app, SceneSettings& settings);

// All of that with --json, for commands that print what they find.
void addSceneArguments(CLI::App& app, std::vector<std::string>& files, bool& is_json,
                       SceneSettings& settings);

// Declares --plugins alone, for commands without a scene.
void addPluginOption(CLI::App& app, SceneSettings& settings);

// An open universe with its messages routed and the plug-ins loaded; closed with the scope.
class Universe {
public:
    explicit Universe(const SceneSettings& settings);
    ~Universe();
    Universe(const Universe&) = delete;
    Universe& operator=(const Universe&) = delete;
};

// Loads scene files, "-" for standard input, into the open universe, one after the other, and shows
// the messages. False after the first that fails, and when prepareScenes() finds that they must not
// be loaded.
bool loadScenes(const SceneSettings& settings, const std::vector<std::string>& files);

// One of them, without showing messages; 0 when it was loaded.
int loadScene(const SceneSettings& settings, const std::string& file);

// What safe mode lets the command itself do.
TrustedPaths trustedPaths(const SceneSettings& settings);

// Nodes of the kinds in the mask, in order of creation.
std::vector<RtNode*> nodesOfKind(unsigned int mask);

std::vector<std::string> namesOf(const std::vector<RtNode*>& nodes);

} // namespace ruvell

#endif
