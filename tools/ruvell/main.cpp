// ruvell: renders, inspects and converts scenes from the command line. It uses nothing but the
// public interface of the library.
#include "application.h"
#include "report.h"
#include <cstdio>
#include <exception>
#include <string>

namespace ruvell {

static std::string helpHint(const CLI::App& application)
{
    const auto chosen = application.get_subcommands();
    const std::string name = chosen.empty() ? "" : " " + chosen.back()->get_name();
    return "Try 'ruvell" + name + " --help' for more information.";
}

// Help and version are asked for by exceptions too; they are no errors.
static int closeParsing(const CLI::App& application, const CLI::ParseError& error)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return application.exit(error);
    reportError(error.what());
    std::fprintf(stderr, "%s\n", helpHint(application).c_str());
    return exit_usage;
}

static int runCommandLine(int argc, char** argv)
{
    const auto application = makeApplication();
    try {
        application->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return closeParsing(*application, error);
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
