// Safe mode: rules, what they refuse before loading, and what the system enforces afterwards.
#include "safe.h"
#include "confine.h"
#include "report.h"
#include "scene_paths.h"
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <new>
#include <stdexcept>
#include <unistd.h>

namespace ruvell {

void addSafetyOptions(CLI::App& app, SafetySettings& settings)
{
    CLI::Option* safe =
        app.add_flag("--safe", settings.is_on,
                     "For scenes from strangers: no commands, no plug-ins, no files outside of the "
                     "roots, bounded memory");
    app.add_option("--root", settings.roots,
                   "With --safe: the scene may read and write below DIR; may be repeated. Without "
                   "it, below the folders of the scenes")
        ->type_name("DIR")
        ->check(CLI::ExistingDirectory)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->needs(safe);
    app.add_option("--max-memory", settings.max_memory,
                   "With --safe: bound of the memory, such as 500M or 4G; half of the machine's "
                   "unless given")
        ->type_name("SIZE")
        ->transform(CLI::AsSizeValue(false))
        ->needs(safe);
    app.add_option("--max-nodes", settings.max_nodes,
                   "With --safe: bound of the number of nodes; 1000000 unless given")
        ->type_name("N")
        ->check(CLI::PositiveNumber)
        ->needs(safe);
}

// ---- Rules ----

SafetyRules::SafetyRules(const SafetySettings& safety, const std::vector<std::string>& scenes,
                         const TrustedPaths& trusted_paths)
    : settings(safety), trusted(trusted_paths)
{
    for (const std::string& root : settings.roots)
        roots.push_back(realPath(root));
    for (const std::string& scene : scenes) {
        const std::string found = firstReadable(sceneCandidates(scene, ""));
        if (found.empty())
            continue;
        files.push_back(realPath(found));
        if (settings.roots.empty())
            roots.push_back(realPath(folderOf(found)));
    }
    if (settings.max_memory == 0)
        settings.max_memory = physicalMemory() / 2;
}

bool SafetyRules::isReadable(const std::string& real) const
{
    if (std::find(files.begin(), files.end(), real) != files.end())
        return true;
    return std::any_of(roots.begin(), roots.end(),
                       [&](const std::string& root) { return isInside(real, root); });
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
    if (std::find(files.begin(), files.end(), real) != files.end())
        return "writing over the scene " + shownPath(path, real);
    for (const std::string& file : trusted.written)
        if (isInside(real, realPath(folderOf(file))))
            return "";
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
    return options;
}

// ---- Enforcement ----

static char out_of_memory[160];

// C++ code that runs out of memory, in whatever library, ends here.
static void reportNoMemory()
{
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, out_of_memory, std::strlen(out_of_memory));
    std::_Exit(1);
}

// The metadata file beside the library is read for every universe.
static std::string libraryFolder()
{
    Dl_info info;
    const bool is_known = dladdr(reinterpret_cast<const void*>(&RvBegin), &info) != 0;
    return is_known && info.dli_fname ? folderOf(info.dli_fname) : "";
}

void SafetyRules::enforce(const std::vector<std::string>& outputs) const
{
    std::snprintf(out_of_memory, sizeof out_of_memory,
                  "ruvell: error: the scene needs more memory than the %llu MB of --max-memory\n",
                  static_cast<unsigned long long>(settings.max_memory >> 20));
    std::set_new_handler(reportNoMemory);
    if (!limitMemory(settings.max_memory))
        reportWarning("the memory cannot be bounded on this system");

    Confinement confinement;
    confinement.readable = roots;
    for (const auto* paths : { &files, &trusted.read })
        confinement.readable.insert(confinement.readable.end(), paths->begin(), paths->end());
    confinement.readable.push_back(joinPath(libraryFolder(), "ruvell.mtd"));
    for (const auto* paths : { &outputs, &trusted.written })
        for (const std::string& file : *paths)
            confinement.writable.push_back(folderOf(file));
    confinement.may_load_code = trusted.has_plugins;
    const std::string missing = confineProcess(confinement);
    if (!missing.empty())
        RvMsgInfo("safe mode: this system cannot confine %s; the check of the scene alone must do",
                  missing.c_str());
}

// ---- Standard input ----

InputCopy::InputCopy()
{
    const char* folder = std::getenv("TMPDIR");
    file_path = joinPath(folder && *folder ? folder : "/tmp", "ruvell-XXXXXX");
    const int file = mkstemp(file_path.data());
    if (file < 0)
        throw std::runtime_error("cannot keep standard input in " + file_path + ": " +
                                 systemError());
    char buffer[65536];
    ssize_t count;
    bool is_kept = true;
    while (is_kept && (count = read(STDIN_FILENO, buffer, sizeof buffer)) > 0)
        for (ssize_t done = 0; is_kept && done < count;) {
            const ssize_t written = write(file, buffer + done, static_cast<size_t>(count - done));
            is_kept = written > 0;
            done += written;
        }
    close(file);
    if (!is_kept) {
        unlink(file_path.c_str());
        throw std::runtime_error("cannot keep standard input in " + file_path);
    }
}

InputCopy::~InputCopy() { unlink(file_path.c_str()); }

// ---- Scenes ----

static bool reportFindings(const Findings& findings)
{
    bool is_clean = true;
    for (const Finding& finding : findings.sorted())
        if (finding.effect != Effect::none) {
            std::fprintf(stderr, "%s\n", describe(finding).c_str());
            is_clean = false;
        }
    return is_clean;
}

// Scans the scenes; what standard input held is kept until the process ends.
bool prepareScenes(std::vector<std::string>& scenes, const SafetySettings& settings,
                   const TrustedPaths& trusted)
{
    static std::unique_ptr<InputCopy> input;
    std::vector<std::string> shown = scenes;
    if (settings.is_on)
        for (std::string& scene : scenes)
            if (scene == "-") {
                if (!input)
                    input = std::make_unique<InputCopy>();
                scene = input->path();
            }
    SafetySettings own = settings;
    if (input && settings.roots.empty())
        own.roots.push_back("."); // the copy lies where nothing else should be read

    const SafetyRules rules(own, scenes, trusted);
    Findings findings;
    SceneScan scan(settings.is_on ? rules.scanOptions() : ScanOptions(), UniverseState::now(),
                   findings);
    for (size_t i = 0; i < scenes.size(); ++i)
        scan.scanScene(scenes[i], shown[i] == "-" ? "standard input" : shown[i]);
    scan.finish();
    if (!reportFindings(findings)) {
        reportError(settings.is_on ? "the scene is not allowed in safe mode"
                                   : "the scene cannot be loaded");
        return false;
    }
    if (settings.is_on)
        rules.enforce(scan.outputFiles());
    return true;
}

} // namespace ruvell
