// Looking at scenes before they are loaded, and loading scenes of strangers.
#ifndef RUVELL_SAFE_H
#define RUVELL_SAFE_H

#include "confine.h"
#include "findings.h"
#include "scan.h"
#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ruvell {

struct SafetySettings {
    bool is_on = false;
    std::vector<std::string> roots; // empty: the folders of the scenes
    std::string max_memory;         // empty: half of the machine's
    uint64_t max_nodes = 1000000;
    std::string max_scan = "1m";
};

// Declares --safe with --root and the bounds.
void addSafetyOptions(CLI::App& app, SafetySettings& settings);

// Declares --safe alone, for commands without a scene.
CLI::Option* addSafeFlag(CLI::App& app, SafetySettings& settings);

// Declares --max-memory, which needs --safe.
void addMemoryOption(CLI::App& app, SafetySettings& settings, CLI::Option* safe);

// Bytes.
uint64_t maxMemory(const SafetySettings& settings);

// In safe mode bounds the memory of the process, once and for all.
void boundMemory(const SafetySettings& settings);

// Files and folders that the person at the command line named, scenes aside.
struct TrustedPaths {
    std::vector<std::string> searched; // folders that search paths are extended with
    std::vector<std::string> read;
    std::vector<std::string> written;
    bool has_plugins = false; // so that libraries may be loaded later on
    std::optional<int> frame; // whose number goes into the names of outputs
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
    // What the process may do under the other rules, when the scene writes these outputs. Places
    // for the number of the frame are filled.
    Confinement confinement(const std::vector<std::string>& outputs) const;

private:
    bool isReadable(const std::string& real) const;

    SafetySettings settings;
    TrustedPaths trusted;
    std::vector<std::string> roots, files; // real paths
};

// Binds the process to that, once and for all; warns of what the system cannot enforce.
void confineOnce(const Confinement& confinement);

// The same, in safe mode, for a command that reads no scene and only what was trusted.
void confineWithoutScenes(const SafetySettings& settings, const TrustedPaths& trusted);

// From here on the process says this and leaves when C++ code, in whatever library, finds no
// memory. Called again, the last message counts. Call it while no other thread asks for memory.
void leaveWithoutMemory(const std::string& message);

// When a message of the library tells that memory has run out, says once whose bound that is.
void explainLackOfMemory(const std::string& message);

// Call it in an open universe before the scenes are loaded: it reports on standard error, and
// returns false for, scenes whose loading would not end and, in safe mode, scenes that want what is
// not allowed; then it confines the process.
bool prepareScenes(const SceneSources& sources, const SafetySettings& settings,
                   const TrustedPaths& trusted);

// One frame of a sequence.
struct FrameFiles {
    std::vector<std::string> scenes; // as named on the command line, with the number
    TrustedPaths trusted;
};

// Call it in safe mode, in an open universe, before the scenes of the first frame are prepared: a
// process can be confined only once, so it has to be to what any of the frames needs. Each frame
// may use only what it may by its own scenes; that is looked at when its turn comes.
void confineToFrames(const SafetySettings& settings, const std::vector<FrameFiles>& frames);

} // namespace ruvell

#endif
