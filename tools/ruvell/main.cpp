// ruvell: renders, inspects and converts scenes from the command line. It uses nothing but the
// public interface of the library.
#include "application.h"
#include "help_text.h"
#include "report.h"
#include "signals.h"
#include "text.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

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

static std::string commandProblem(const std::string& first_argument)
{
    std::vector<std::string> names;
    for (const Command* command : commands())
        if (!command->is_hidden)
            names.emplace_back(command->name);
    if (first_argument.empty())
        return "which command? There are " + joined(names, ", ");
    return "there is no command '" + first_argument + "'" +
           suggestion(nearestNames(first_argument, names));
}

// "--name" of "--name=value".
static std::string withoutValue(const std::string& argument)
{
    return argument.substr(0, argument.find('='));
}

static std::string argumentProblem(const CLI::App& app, const std::string& argument)
{
    if (!argument.starts_with("-") || argument == "-")
        return "there is no place for '" + argument + "'";
    std::vector<std::string> names;
    for (const CLI::Option* option : namedOptions(app))
        for (const std::string& name : optionNames(*option))
            names.push_back(name);
    const std::string wrong = withoutValue(argument);
    return "there is no option '" + wrong + "'" +
           suggestion(wrong.starts_with("--") ? nearestNames(wrong, names)
                                              : std::vector<std::string>());
}

// What is wrong with the command line. The parser misses a command; people misspelt it.
static std::string problemOf(const CLI::App& application, const CLI::ParseError& error,
                             const std::string& first_argument)
{
    const auto chosen = application.get_subcommands();
    const bool is_something_missing =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError);
    if (is_something_missing && !isCommand(first_argument))
        return first_argument.starts_with("-") ? argumentProblem(application, first_argument)
                                               : commandProblem(first_argument);
    const CLI::App& app = chosen.empty() ? application : *chosen.back();
    const std::vector<std::string> extras = app.remaining();
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError) && !extras.empty())
        return argumentProblem(app, extras.front());
    return error.what();
}

// Help and version are asked for by exceptions too; they are no errors.
static int closeParsing(const CLI::App& application, const CLI::ParseError& error,
                        const std::string& first_argument)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return application.exit(error);
    reportError(problemOf(application, error, first_argument));
    std::fprintf(stderr, "%s\n", helpHint(application).c_str());
    return exit_usage;
}

// A file that is opened must not take the place of one that whoever started us has closed: results
// or messages would go into it.
static void occupyStandardFiles()
{
    for (const int standard : { STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO })
        if (fcntl(standard, F_GETFD) < 0)
            open("/dev/null", standard == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

// Whether whoever reads our results has left: then nobody misses the rest.
static bool isReaderGone()
{
    pollfd output = { STDOUT_FILENO, POLLOUT, 0 };
    return poll(&output, 1, 0) == 1 && (output.revents & POLLERR);
}

// False when some of the results could not be written, with an error unless nobody reads them.
static bool closeOutput()
{
    errno = 0;
    std::cout.flush();
    const bool is_flushed = std::fflush(stdout) == 0;
    const int reason = errno;
    if (is_flushed && !std::ferror(stdout))
        return true;
    if (!isReaderGone())
        reportError(std::string("cannot write the results") +
                    (reason ? std::string(": ") + std::strerror(reason) : ""));
    return false;
}

// "help render" means "render --help".
static std::vector<std::string> argumentsOf(int argc, char** argv)
{
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    if (arguments.empty() || arguments.front() != "help")
        return arguments;
    arguments.erase(arguments.begin());
    arguments.resize(std::min(arguments.size(), size_t{ 1 }));
    if (arguments.empty() || isCommand(arguments.front()))
        arguments.emplace_back("--help");
    return arguments;
}

static int runCommandLine(int argc, char** argv)
{
    const auto application = makeApplication();
    const std::vector<std::string> arguments = argumentsOf(argc, argv);
    try {
        std::vector<std::string> backwards(arguments.rbegin(), arguments.rend());
        application->parse(std::move(backwards)); // it takes the last one first
    } catch (const CLI::ParseError& error) {
        return closeParsing(*application, error, arguments.empty() ? "" : arguments.front());
    }
    const Command* command = chosenCommand(*application);
    return command->run(*application->get_subcommand(command->name));
}

} // namespace ruvell

int main(int argc, char** argv)
{
    ruvell::occupyStandardFiles();
    ruvell::endTidilyOnSignals();
    int code = ruvell::exit_failure;
    try {
        code = ruvell::runCommandLine(argc, argv);
    } catch (const std::exception& error) {
        ruvell::reportError(error.what());
    }
    const bool is_written = ruvell::closeOutput();
    return code == ruvell::exit_success && !is_written ? ruvell::exit_failure : code;
}
