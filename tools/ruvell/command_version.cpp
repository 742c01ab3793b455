// `ruvell version`: the version of the library and what the running build really is.
#include "build_info.h"
#include "command.h"
#include "safe.h"
#include <cstdio>
#include <ruvell/rv.h>

namespace ruvell {

static SafetySettings safety;

static void setup(CLI::App& app) { addSafeFlag(app, safety); }

static int run(CLI::App&)
{
    confineWithoutScenes(safety, {});
    std::printf("%s\nbuilt as: %s\n", RvGetVersionInfo(), buildInfo().c_str());
    return exit_success;
}

const Command command_version = {
    .name = "version",
    .summary = "Show the version of the renderer and how it was built",
    .setup = setup,
    .run = run,
};

} // namespace ruvell
