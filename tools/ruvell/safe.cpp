// Safe mode: rules, what they refuse before loading, and what the system enforces afterwards.
#include "safe.h"
#include "command.h"
#include "confine.h"
#include "duration.h"
#include "frames.h"
#include "library_log.h"
#include "option_values.h"
#include "report.h"
#include "scene_paths.h"
#include "signals.h"
#include "terminal.h"
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <memory>
#include <new>
#include <set>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace ruvell {

// ---- Options ----

CLI::Option* addSafeFlag(CLI::App& app, SafetySettings& settings)
{
    return app.add_flag("--safe", settings.is_on,
                        "Give up access to files and programs before the work");
}

void addMemoryOption(CLI::App& app, SafetySettings& settings, CLI::Option* safe)
{
    app.add_option("--max-memory", settings.max_memory,
                   "With --safe: bound of the memory, such as 500M or 4G; half of the machine's "
                   "unless given")
        ->type_name("SIZE")
        ->check(checkMemory)
        ->needs(safe);
}

void addSafetyOptions(CLI::App& app, SafetySettings& settings)
{
    CLI::Option* safe =
        app.add_flag("--safe", settings.is_on,
                     "For scenes from strangers: no commands, no plug-ins, no files outside of the "
                     "roots, bounded memory");
    addRepeatable(app, "--root", settings.roots,
                  "With --safe: the scene may read and write below DIR; may be repeated. Without "
                  "it, below the folders of the scenes",
                  "DIR", CLI::ExistingDirectory)
        ->needs(safe);
    addMemoryOption(app, settings, safe);
    app.add_option("--max-nodes", settings.max_nodes,
                   "With --safe: bound of the number of nodes; 1000000 unless given")
        ->type_name("N")
        ->check(wholeNumber(1, INT32_MAX))
        ->needs(safe);
    app.add_option("--max-scan", settings.max_scan,
                   "With --safe: bound of the time it takes to look at the scene before it is "
                   "loaded; 1m unless given")
        ->type_name("DURATION")
        ->check(checkDuration)
        ->needs(safe);
}

uint64_t maxMemory(const SafetySettings& settings)
{
    return parseMemory(settings.max_memory).value_or(physicalMemory() / 2);
}

// ---- Rules ----

SafetyRules::SafetyRules(const SafetySettings& safety, const SceneSources& sources,
                         const TrustedPaths& trusted_paths)
    : settings(safety), trusted(trusted_paths)
{
    for (const std::string& root : settings.roots)
        roots.push_back(realPath(root));
    for (const SceneSource& source : sources.list()) {
        const std::string found = firstReadable(sceneCandidates(source.path, ""));
        if (found.empty())
            continue;
        files.push_back(realPath(found));
        if (settings.roots.empty())
            roots.push_back(realPath(source.shown == source.path ? folderOf(found) : "."));
    }
    for (const auto* paths : { &trusted.searched, &trusted.read })
        for (const std::string& path : *paths)
            files.push_back(realPath(path));
}

bool SafetyRules::isReadable(const std::string& real) const
{
    const auto holds = [&](const std::string& path) { return isInside(real, path); };
    return std::any_of(files.begin(), files.end(), holds) ||
           std::any_of(roots.begin(), roots.end(), holds);
}

static std::string shownPath(const std::string& path, const std::string& real)
{
    return '"' + path + '"' + (path == real ? "" : ", which is " + real);
}

std::string SafetyRules::refuseReading(const std::string& path) const
{
    const std::string real = realPath(path);
    return isReadable(real) ? "" : "reading " + shownPath(path, real) + ", outside of the roots";
}

std::string SafetyRules::refuseWriting(const std::string& path) const
{
    const std::string real = realPath(path);
    for (const std::string& output : trusted.written)
        if (real == realPath(trusted.frame ? withFrame(output, *trusted.frame) : output))
            return "";
    if (isDanglingLink(path))
        return "writing through the symbolic link \"" + path + '"';
    if (std::find(files.begin(), files.end(), real) != files.end())
        return "writing over the scene " + shownPath(path, real);
    for (const std::string& root : roots)
        if (isInside(real, root))
            return "";
    return "writing " + shownPath(path, real) + ", outside of the roots";
}

ScanOptions SafetyRules::scanOptions() const
{
    ScanOptions options;
    options.safe = true;
    options.refuseReading = [this](const std::string& path) { return refuseReading(path); };
    options.refuseWriting = [this](const std::string& path) { return refuseWriting(path); };
    options.max_nodes = settings.max_nodes;
    options.max_time = parseDuration(settings.max_scan);
    options.frame = trusted.frame;
    return options;
}

// ---- Enforcement ----

static char out_of_memory[1024];
static std::unique_ptr<char[]> last_reserve; // memory to clean up with

// The first thread to come leaves; what it still does may fail. The others wait for the end.
static void endForLackOfMemory()
{
    static thread_local bool is_leaving = false;
    static std::atomic_flag is_taken;
    if (std::exchange(is_leaving, true))
        throw std::bad_alloc();
    while (is_taken.test_and_set())
        pause();
    last_reserve.reset();
    writeLastLine(out_of_memory);
    leave(exit_failure);
}

void leaveWithoutMemory(const std::string& message)
{
    static constexpr size_t reserve_size = 1 << 20;
    if (!last_reserve)
        last_reserve = std::make_unique<char[]>(reserve_size);
    std::snprintf(out_of_memory, sizeof out_of_memory, "ruvell: error: %s",
                  printable(message).c_str());
    std::set_new_handler(endForLackOfMemory);
}

void explainLackOfMemory(const std::string& message)
{
    static std::atomic_flag is_said;
    const bool is_meant = message.find("can't allocate") != std::string::npos ||
                          message.find("can't reallocate") != std::string::npos;
    if (is_meant && !is_said.test_and_set())
        writeLine(out_of_memory);
}

// The metadata file beside the library is read for every universe.
static std::string libraryFolder()
{
    Dl_info info;
    const bool is_known = dladdr(reinterpret_cast<const void*>(&RvBegin), &info) != 0;
    return is_known && info.dli_fname ? folderOf(info.dli_fname) : "";
}

void boundMemory(const SafetySettings& settings)
{
    static bool is_bounded = false;
    if (!settings.is_on || std::exchange(is_bounded, true))
        return;
    const uint64_t max_memory = maxMemory(settings);
    leaveWithoutMemory("the scene needs more memory than the " + std::to_string(max_memory >> 20) +
                       " MB of --max-memory");
    setListener(RV_LOG_ERRORS,
                [](int, const std::string& text, int) { explainLackOfMemory(text); });
    if (!limitMemory(max_memory))
        reportWarning("the memory cannot be bounded on this system");
}

// Only what the scan would allow too: the number of a frame may lead elsewhere than its place.
Confinement SafetyRules::confinement(const std::vector<std::string>& outputs) const
{
    Confinement confinement;
    confinement.readable = roots;
    confinement.readable.insert(confinement.readable.end(), files.begin(), files.end());
    confinement.readable.push_back(joinPath(libraryFolder(), "ruvell.mtd"));
    for (const auto* paths : { &outputs, &trusted.written })
        for (const std::string& output : *paths) {
            const std::string file = trusted.frame ? withFrame(output, *trusted.frame) : output;
            if (refuseWriting(file).empty())
                confinement.writable.push_back(folderOf(realPath(file)));
        }
    confinement.may_load_code = trusted.has_plugins;
    return confinement;
}

void confineOnce(const Confinement& confinement)
{
    static bool is_confined = false;
    if (std::exchange(is_confined, true))
        return;
    const std::string missing = confineProcess(confinement);
    if (!missing.empty())
        reportWarning("safe mode: this system cannot confine " + missing +
                      "; the check of the scene alone must do");
}

void confineWithoutScenes(const SafetySettings& settings, const TrustedPaths& trusted)
{
    if (settings.is_on)
        confineOnce(SafetyRules(settings, SceneSources({}), trusted).confinement({}));
}

// ---- Scenes ----

static bool writeAll(int file, const char* data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = write(file, data, static_cast<size_t>(size));
        if (written <= 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

static int copyInput()
{
    const int file = memfd_create("ruvell-input", MFD_CLOEXEC);
    bool is_kept = file >= 0;
    char buffer[65536];
    ssize_t count = 0;
    while (is_kept && (count = read(STDIN_FILENO, buffer, sizeof buffer)) > 0)
        is_kept = writeAll(file, buffer, count);
    if (!is_kept || count < 0) {
        const std::string reason = systemError();
        if (file >= 0)
            close(file);
        throw std::runtime_error("cannot read standard input: " + reason);
    }
    return file;
}

SceneSources::SceneSources(const std::vector<std::string>& names)
{
    for (const std::string& name : names) {
        if (name == "-" && input_copy < 0)
            input_copy = copyInput();
        sources.push_back(name == "-" ? SceneSource{ inputPath(), "standard input" }
                                      : SceneSource{ name, name });
    }
}

SceneSources::~SceneSources()
{
    if (input_copy >= 0)
        close(input_copy);
}

std::string SceneSources::inputPath() const
{
    return "/proc/self/fd/" + std::to_string(input_copy);
}

std::string SceneSources::shown(const std::string& path) const
{
    return path == inputPath() ? "standard input" : path;
}

// The findings that stand in the way of loading. False when there are any.
static bool reportObstacles(const Findings& findings)
{
    bool is_clean = true;
    for (const Finding& finding : findings.sorted())
        if (finding.effect != Effect::none) {
            writeLine(describe(finding));
            is_clean = false;
        }
    return is_clean;
}

bool prepareScenes(const SceneSources& sources, const SafetySettings& settings,
                   const TrustedPaths& trusted)
{
    const SafetyRules rules(settings, sources, trusted);
    Findings findings;
    ScanOptions options = settings.is_on ? rules.scanOptions() : ScanOptions();
    options.search_dirs = trusted.searched;
    boundMemory(settings); // scenes of strangers may be large to read, too
    SceneScan scan(std::move(options), UniverseState::now(), findings);
    for (const SceneSource& source : sources.list())
        scan.scanScene(source.path, source.shown);
    scan.finish();
    if (!reportObstacles(findings)) {
        reportError(settings.is_on ? "the scene is not allowed in safe mode"
                                   : "the scene cannot be loaded");
        return false;
    }
    if (settings.is_on)
        confineOnce(rules.confinement(scan.outputFiles()));
    return true;
}

// ---- Frames ----

static std::vector<std::string> outputsOf(const SafetyRules& rules, const SceneSources& sources,
                                          const std::vector<std::string>& search_dirs)
{
    Findings ignored; // until it is the turn of the frame
    ScanOptions options = rules.scanOptions();
    options.search_dirs = search_dirs;
    SceneScan scan(std::move(options), UniverseState::now(), ignored);
    for (const SceneSource& source : sources.list())
        scan.scanScene(source.path, source.shown);
    scan.finish();
    return scan.outputFiles();
}

void confineToFrames(const SafetySettings& settings, const std::vector<FrameFiles>& frames)
{
    std::set<std::string> readable, writable;
    const std::vector<std::string>* scanned = nullptr;
    std::vector<std::string> outputs;
    for (const FrameFiles& frame : frames) {
        const SceneSources sources(frame.scenes);
        const SafetyRules rules(settings, sources, frame.trusted);
        boundMemory(settings);
        if (!scanned || *scanned != frame.scenes)
            outputs = outputsOf(rules, sources, frame.trusted.searched);
        scanned = &frame.scenes;
        const Confinement needed = rules.confinement(outputs);
        readable.insert(needed.readable.begin(), needed.readable.end());
        writable.insert(needed.writable.begin(), needed.writable.end());
    }
    const bool has_plugins = !frames.empty() && frames.front().trusted.has_plugins;
    confineOnce({ { readable.begin(), readable.end() },
                  { writable.begin(), writable.end() },
                  has_plugins });
}

} // namespace ruvell
