// Looking at scenes before they are loaded, and loading scenes of strangers.
#ifndef RUVELL_SAFE_H
#define RUVELL_SAFE_H

#include "findings.h"
#include "scan.h"
#include <CLI/CLI.hpp>
#include <cstdint>
#include <memory>
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
    std::vector<std::string> read;
    std::vector<std::string> written;
    bool has_plugins = false; // so that libraries may be loaded later on
};

// What safe mode allows, from the settings and the scenes named on the command line.
class SafetyRules {
public:
    SafetyRules(const SafetySettings& settings, const std::vector<std::string>& scenes,
                const TrustedPaths& trusted);

    // Why a file may not be read or written, empty when it may.
    std::string refuseReading(const std::string& path) const;
    std::string refuseWriting(const std::string& path) const;

    ScanOptions scanOptions() const;
    // Binds the process to the rules; says at -v what the system cannot enforce.
    void enforce(const std::vector<std::string>& outputs) const;

private:
    bool isReadable(const std::string& real) const;

    SafetySettings settings;
    TrustedPaths trusted;
    std::vector<std::string> roots, files; // real paths
};

// Call it in an open universe before RvRVSLoad, with the names as given: it reports on standard
// error, and returns false for, scenes whose loading would not end and, in safe mode, scenes that
// want what is not allowed; then it confines the process. In safe mode standard input is copied to
// a file, whose name takes the place of "-".
bool prepareScenes(std::vector<std::string>& scenes, const SafetySettings& settings,
                   const TrustedPaths& trusted);

// A copy of standard input in a file of its own, removed with this object.
class InputCopy {
public:
    InputCopy(); // throws std::runtime_error
    ~InputCopy();
    InputCopy(const InputCopy&) = delete;
    InputCopy& operator=(const InputCopy&) = delete;
    const std::string& path() const { return file_path; }

private:
    std::string file_path;
};

} // namespace ruvell

#endif
