// The list of sub-commands, and what their exit codes mean.
#include "command.h"
#include <csignal>

namespace ruvell {

static const Command* const command_list[] = {
    &command_render, &command_check,   &command_info,       &command_convert, &command_maketx,
    &command_nodes,  &command_version, &command_completion, &command_manual,
};

static const std::pair<int, const char*> exit_code_texts[] = {
    { exit_success, "success" },
    { exit_failure, "failure: of the scene, the render or a file" },
    { exit_usage, "wrong use of the command line" },
    { exit_timeout, "stopped by --timeout" },
    { exit_signal + SIGHUP, "the terminal was closed" },
    { exit_signal + SIGINT, "interrupted" },
    { exit_signal + SIGTERM, "told to end" },
};

std::span<const std::pair<int, const char*>> exitCodeTexts() { return exit_code_texts; }

std::span<const Command* const> commands() { return command_list; }

} // namespace ruvell
