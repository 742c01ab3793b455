// ruvell: renders, inspects and converts scenes from the command line. It uses nothing but the
// public interface of the library.
#include "application.h"
#include "report.h"
#include <cstdio>
#include <exception>
#include <string>

namespace ruvell {

static bool isCommand(const std::string& name)
{
    for (const Command* command : commands())
        if (name == command->name)
            return true;
    return false;
}

static std::string helpHint(const CLI::App& application)
{
    const auto chosen = application.get_subcommands();
    const std::string name = chosen.empty() ? "" : " " + chosen.back()->get_name();
    return "Try 'ruvell" + name + " --help' for more information.";
}

// What is wrong with the command line. The parser misses a command; people misspelt it.
static std::string problemOf(const CLI::ParseError& error, const std::string& first_argument)
{
    const bool is_command_missing =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError);
    if (!is_command_missing || first_argument.empty() || first_argument.starts_with("-") ||
        isCommand(first_argument))
        return error.what();
    std::vector<std::string> names;
    for (const Command* command : commands())
        if (!command->is_hidden)
            names.emplace_back(command->name);
    return "there is no command '" + first_argument + "'" +
           suggestion(nearestNames(first_argument, names));
}

// Help and version are asked for by exceptions too; they are no errors.
static int closeParsing(const CLI::App& application, const CLI::ParseError& error,
                        const std::string& first_argument)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return application.exit(error);
    reportError(problemOf(error, first_argument));
    std::fprintf(stderr, "%s\n", helpHint(application).c_str());
    return exit_usage;
}

static int runCommandLine(int argc, char** argv)
{
    const auto application = makeApplication();
    try {
        application->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return closeParsing(*application, error, argc > 1 ? argv[1] : "");
    }
    const Command* command = chosenCommand(*application);
    return command->run(*application->get_subcommand(command->name));
}

} // namespace ruvell

int main(int argc, char** argv)
{
    try {
        return ruvell::runCommandLine(argc, argv);
    } catch (const std::exception& error) {
        ruvell::reportError(error.what());
    }
    return ruvell::exit_failure;
}
