// Builds the command line from the list of sub-commands.
#include "application.h"
#include <ruvell/rv.h>

namespace ruvell {

static const char* const exit_codes = "Exit codes:\n"
                                      "  0    success\n"
                                      "  1    failure: of the scene, the render or a file\n"
                                      "  2    wrong use of the command line\n"
                                      "  124  stopped by --timeout\n"
                                      "  130  interrupted";

static void addCommand(CLI::App& application, const Command& command)
{
    CLI::App* sub = application.add_subcommand(command.name, command.summary);
    sub->footer(command.footer);
    if (command.is_hidden)
        sub->group("");
    command.setup(*sub);
}

std::unique_ptr<CLI::App> makeApplication()
{
    auto application = std::make_unique<CLI::App>("Ray-tracing renderer", "ruvell");
    application->get_formatter()->column_width(34);
    application->set_help_flag("-h,--help", "Show this help and exit");
    application->set_version_flag("--version", std::string("ruvell ") + RvGetVersion(0, 0, 0, 0),
                                  "Show the version and exit");
    application->footer(std::string("'ruvell COMMAND --help' shows the options of a command.\n\n") +
                        exit_codes);
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
