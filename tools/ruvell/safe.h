// Looking at scenes before they are loaded, and loading scenes of strangers.
#ifndef RUVELL_SAFE_H
#define RUVELL_SAFE_H

#include "findings.h"
#include "scan.h"
#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace ruvell {

struct SafetySettings {
    bool is_on = false;
    std::vector<std::string> roots; // empty: the folders of the scenes
    uint64_t max_memory = 0;        // bytes; 0: half of the machine's
    uint64_t max_nodes = 1000000;
};

// Declares --safe, --root, --max-memory and --max-nodes.
void addSafetyOptions(CLI::App& app, SafetySettings& settings);

// Files and folders that the person at the command line named, scenes aside.
struct TrustedPaths {
    std::vector<std::string> searched; // folders that search paths are extended with
    std::vector<std::string> read;
    std::vector<std::string> written;
    bool has_plugins = false; // so that libraries may be loaded later on
};

struct SceneSource {
    std::string path;  // what is loaded
    std::string shown; // what it is called on the command line
};

// The scenes named on the command line. In place of standard input stands a copy of it in a file
// without a name, closed with this object, so that it can be looked at before it is loaded.
class SceneSources {
public:
    explicit SceneSources(const std::vector<std::string>& names); // throws std::runtime_error
    ~SceneSources();
    SceneSources(const SceneSources&) = delete;
    SceneSources& operator=(const SceneSources&) = delete;

    const std::vector<SceneSource>& list() const { return sources; }
    // The name to show for a loaded file.
    std::string shown(const std::string& path) const;

private:
    std::string inputPath() const;

    std::vector<SceneSource> sources;
    int input_copy = -1; // file descriptor of the copy
};

// What safe mode allows, from the settings and the scenes named on the command line.
class SafetyRules {
public:
    SafetyRules(const SafetySettings& settings, const SceneSources& sources,
                const TrustedPaths& trusted);

    // Why a file may not be read or written, empty when it may.
    std::string refuseReading(const std::string& path) const;
    std::string refuseWriting(const std::string& path) const;

    ScanOptions scanOptions() const;
    // Bounds the memory of the process, once and for all.
    void boundMemory() const;
    // Binds the process to the other rules, once and for all; warns of what the system cannot
    // enforce. The scene writes these outputs.
    void enforce(const std::vector<std::string>& outputs) const;

private:
    bool isReadable(const std::string& real) const;

    SafetySettings settings;
    TrustedPaths trusted;
    std::vector<std::string> roots, files; // real paths
};

// When a message of the library tells that memory has run out, says once whose bound that is.
void explainLackOfMemory(const std::string& message);

// Call it in an open universe before the scenes are loaded: it reports on standard error, and
// returns false for, scenes whose loading would not end and, in safe mode, scenes that want what is
// not allowed; then it confines the process.
bool prepareScenes(const SceneSources& sources, const SafetySettings& settings,
                   const TrustedPaths& trusted);

} // namespace ruvell

#endif
