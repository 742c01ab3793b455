// `ruvell check`: every problem of a scene, with file and line, without rendering it.
#include "activity.h"
#include "command.h"
#include "findings.h"
#include "load_findings.h"
#include "report.h"
#include "safe.h"
#include "scan.h"
#include "scene.h"
#include <climits>
#include <cstdio>

namespace ruvell {

namespace {

struct CheckSettings {
    SceneSettings scene;
    std::vector<std::string> files;
    bool is_json = false;
};

} // namespace

static CheckSettings settings;

static void setup(CLI::App& app)
{
    addSceneArguments(app, settings.files, settings.is_json, settings.scene);
}

// ---- The two looks at the scenes ----

static void scanScenes(const SceneSources& sources, const UniverseState& universe,
                       ScanOptions options, Findings& findings)
{
    options.search_dirs = settings.scene.search_dirs;
    SceneScan scan(std::move(options), universe, findings);
    const bool is_quiet = settings.scene.log.quiet;
    for (const SceneSource& source : sources.list()) {
        const Activity activity("reading " + source.shown, is_quiet);
        scan.scanScene(source.path, source.shown);
    }
    const Activity activity("looking for files and names", is_quiet);
    scan.finish();
}

static void loadAll(const SceneSources& sources, const UniverseState& universe, Findings& findings)
{
    RvMsgSetMaxWarnings(INT_MAX);
    std::vector<LoadMessage> messages = captureMessages([&] {
        const Activity activity("loading the scene", settings.scene.log.quiet);
        for (const SceneSource& source : sources.list())
            if (loadScene(settings.scene, source.path) != 0)
                break;
    });
    for (LoadMessage& message : messages)
        message.file = sources.shown(message.file);
    addLoadFindings(messages, findings, [&](ScanOptions options, Findings& ignored) {
        scanScenes(sources, universe, std::move(options), ignored);
    });
}

// What the scan says cannot be loaded is left alone.
static void findProblems(Findings& findings)
{
    const SceneSources sources(settings.files);
    const UniverseState universe = UniverseState::now();
    const SafetyRules rules(settings.scene.safety, sources, trustedPaths(settings.scene));
    ScanOptions options = settings.scene.safety.is_on ? rules.scanOptions() : ScanOptions();
    options.load_plugins = !settings.scene.safety.is_on;

    boundMemory(settings.scene.safety);
    // What loading plug-ins says now it says again when the scene is loaded, with its line.
    captureMessages([&] { scanScenes(sources, universe, options, findings); });
    if (findings.has(Effect::endless) || findings.has(Effect::forbidden))
        return;
    if (settings.scene.safety.is_on)
        confineOnce(rules.confinement({}));
    loadAll(sources, universe, findings);
}

// ---- Result ----

static std::string counted(size_t count, const char* what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

static void print(const std::vector<Finding>& findings)
{
    size_t errors = 0;
    for (const Finding& finding : findings) {
        std::printf("%s\n", describe(finding).c_str());
        errors += finding.weight == Weight::error;
    }
    if (settings.scene.log.quiet)
        return;
    if (findings.empty())
        std::printf("no problems\n");
    else
        std::printf("%s, %s\n", counted(errors, "error").c_str(),
                    counted(findings.size() - errors, "warning").c_str());
}

static int run(CLI::App&)
{
    if (!openLog(settings.scene.log))
        return exit_failure;
    const Universe universe(settings.scene);
    Findings findings;
    findProblems(findings);
    const std::vector<Finding> list = findings.sorted();
    if (settings.is_json)
        std::fputs(toJson(list).c_str(), stdout);
    else
        print(list);
    return list.empty() ? exit_success : exit_failure;
}

const Command command_check = {
    .name = "check",
    .summary = "Find every problem of a scene without rendering it",
    .setup = setup,
    .run = run,
    .footer = "Prints FILE:LINE: error|warning: TEXT for each problem, and exits with 1 when there "
              "is any.\n\n"
              "Examples:\n"
              "  ruvell check room.rvs\n"
              "  ruvell check --safe downloaded/scene.rvs",
};

} // namespace ruvell
