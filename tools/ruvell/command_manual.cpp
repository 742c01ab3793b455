// `ruvell manual`, hidden: prints the man page, made from the help of all commands.
#include "command.h"
#include "help_text.h"
#include "safe.h"
#include <cstdio>
#include <ruvell/rv.h>
#include <sstream>

namespace ruvell {

static SafetySettings safety;

static void setup(CLI::App& app) { addSafeFlag(app, safety); }

// Text for the formatter of man pages: no hyphens that break, no dots that begin a request.
static std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        const bool begins_line = result.empty() || result.back() == '\n';
        if ((c == '.' || c == '\'') && begins_line)
            result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
    }
    return result;
}

static void print(const std::string& text) { std::fputs(text.c_str(), stdout); }

static void printTerm(const std::string& term, const std::string& text)
{
    print(".TP\n" + term + "\n" + escaped(text) + "\n");
}

static std::string termOf(const CLI::Option& option)
{
    std::string term;
    for (const std::string& name : optionNames(option))
        term += (term.empty() ? "\\fB" : ", \\fB") + escaped(name) + "\\fR";
    const std::string value = valueName(option);
    return value.empty() ? term : term + " \\fI" + escaped(value) + "\\fR";
}

static std::string synopsis(const CLI::App& command)
{
    std::string text = "\\fBruvell " + command.get_name() + "\\fR [OPTIONS]";
    for (const CLI::Option* option : positionals(command))
        text += " \\fI" + escaped(positionalText(*option)) + "\\fR";
    return text;
}

// Lines as they stand, such as examples; a heading is the first of them.
static void printFooter(const std::string& footer)
{
    if (!footer.empty())
        print(".PP\n.nf\n" + escaped(footer) + "\n.fi\n");
}

static void printCommand(const CLI::App& command)
{
    print(".SS " + command.get_name() + "\n" + synopsis(command) + "\n.PP\n" +
          escaped(command.get_description()) + ".\n");
    for (const CLI::Option* option : positionals(command))
        printTerm("\\fI" + escaped(option->get_name(true)) + "\\fR", option->get_description());
    for (const CLI::Option* option : namedOptions(command))
        printTerm(termOf(*option), option->get_description());
    printFooter(command.get_footer());
}

static void printExitCodes()
{
    print(".SH EXIT STATUS\n");
    for (const auto& [code, meaning] : exitCodeTexts())
        printTerm("\\fB" + std::to_string(code) + "\\fR", meaning);
}

static int run(CLI::App& app)
{
    confineWithoutScenes(safety, {});
    const CLI::App& application = *app.get_parent();
    print(std::string(".\\\" Made by 'ruvell manual'.\n.TH RUVELL 1 \"\" \"Ruvell ") +
          RvGetVersion(nullptr, nullptr, nullptr, nullptr) +
          "\" \"User commands\"\n.SH NAME\nruvell \\- " + escaped(application.get_description()) +
          "\n.SH SYNOPSIS\n\\fBruvell\\fR \\fICOMMAND\\fR [OPTIONS] ...\n.SH OPTIONS\n");
    for (const CLI::Option* option : namedOptions(application))
        printTerm(termOf(*option), option->get_description());
    print(".SH COMMANDS\n");
    for (const CLI::App* command : visibleCommands(application))
        printCommand(*command);
    printExitCodes();
    return exit_success;
}

const Command command_manual = {
    .name = "manual",
    .summary = "Print the man page",
    .setup = setup,
    .run = run,
    .is_hidden = true,
};

} // namespace ruvell
