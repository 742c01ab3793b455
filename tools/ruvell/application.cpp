// Builds the command line from the list of sub-commands.
#include "application.h"
#include "help_text.h"
#include <cstdio>
#include <ruvell/rv.h>

namespace ruvell {

static std::string footer()
{
    std::string text = "'ruvell COMMAND --help' shows the options of a command.\n\nExit codes:";
    for (const auto& [code, meaning] : exitCodeTexts()) {
        char line[128];
        std::snprintf(line, sizeof line, "\n  %-5d%s", code, meaning);
        text += line;
    }
    return text;
}

static void addCommand(CLI::App& application, const Command& command)
{
    CLI::App* sub = application.add_subcommand(command.name, command.summary);
    sub->footer(command.footer);
    sub->group(command.is_hidden ? "" : "Commands");
    command.setup(*sub);
}

std::unique_ptr<CLI::App> makeApplication()
{
    auto application = std::make_unique<CLI::App>("Ray-tracing renderer", "ruvell");
    application->formatter(makeHelpFormatter());
    application->set_help_flag("-h,--help", "Show this help and exit");
    application->set_version_flag("--version", std::string("ruvell ") + RvGetVersion(0, 0, 0, 0),
                                  "Show the version and exit");
    application->footer(footer());
    application->require_subcommand(1);
    for (const Command* command : commands())
        addCommand(*application, *command);
    return application;
}

const Command* chosenCommand(const CLI::App& application)
{
    for (const Command* command : commands())
        if (application.got_subcommand(command->name))
            return command;
    return nullptr;
}

} // namespace ruvell
