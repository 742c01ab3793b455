// The sub-commands of `ruvell`. Each lives in a file of its own, command_<name>.cpp, which offers
// one Command; commands.cpp lists them. To add one: write the file, declare its Command below and
// add it to the list there.
#ifndef RUVELL_COMMAND_H
#define RUVELL_COMMAND_H

#include <CLI/CLI.hpp>
#include <span>
#include <utility>

namespace ruvell {

// What the process returns. The numbers are documented in the help and in docs/command.md.
enum ExitCode {
    exit_success = 0,
    exit_failure = 1, // the scene, the render or a file
    exit_usage = 2,   // the command line
    exit_timeout = 124,
    exit_signal = 128 // and the number of the signal that ended the command
};

// Each exit code with its meaning.
std::span<const std::pair<int, const char*>> exitCodeTexts();

struct Command {
    const char* name;
    const char* summary;          // one line, shown in the list of sub-commands
    void (*setup)(CLI::App& app); // declares the options; they write into the command's own record
    int (*run)(CLI::App& app);    // runs after parsing and returns an exit code
    const char* footer = "";      // closes the help: examples
    bool is_hidden = false;       // works, but is left out of help, completion and man page
};

extern const Command command_check;
extern const Command command_completion;
extern const Command command_convert;
extern const Command command_info;
extern const Command command_maketx;
extern const Command command_manual;
extern const Command command_nodes;
extern const Command command_render;
extern const Command command_version;

// In the order of the help.
std::span<const Command* const> commands();

} // namespace ruvell

#endif
