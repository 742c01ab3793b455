// `ruvell completion bash`: completion of commands, options, files and node types, made from the
// options themselves.
#include "command.h"
#include "help_text.h"
#include "safe.h"
#include "text.h"
#include <cstdio>

namespace ruvell {

static SafetySettings safety;

static void setup(CLI::App& app)
{
    static std::string shell;
    addSafeFlag(app, safety);
    app.add_option("SHELL", shell, "The shell: bash")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember({ "bash" }));
}

static std::string commandNames(const CLI::App& application)
{
    std::vector<std::string> names;
    for (const CLI::App* command : visibleCommands(application))
        names.push_back(command->get_name());
    return joined(names, " ");
}

static std::string namesOfOptions(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : namedOptions(app))
        names.push_back(joined(optionNames(*option), " "));
    return joined(names, " ");
}

// What completes the value of an option, by the name of the value in the help.
static std::string completionOf(const std::string& value)
{
    if (value == "FILE")
        return "COMPREPLY=($(compgen -f -- \"$word\"))";
    if (value == "DIR")
        return "COMPREPLY=($(compgen -d -- \"$word\"))";
    return "COMPREPLY=()";
}

static void printValueCases(const CLI::App& command)
{
    for (const CLI::Option* option : namedOptions(command))
        if (const std::string value = valueName(*option); !value.empty())
            std::printf(
                "        %s:%s) %s; return ;;\n", command.get_name().c_str(),
                joined(optionNames(*option), (" | " + command.get_name() + ":").c_str()).c_str(),
                completionOf(value).c_str());
}

static void printScript(const CLI::App& application)
{
    std::printf("# bash completion for ruvell, made by 'ruvell completion bash'\n"
                "_ruvell()\n"
                "{\n"
                "    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
                "    local command=${COMP_WORDS[1]}\n"
                "    COMPREPLY=()\n"
                "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
                "        COMPREPLY=($(compgen -W \"%s %s\" -- \"$word\"))\n"
                "        return\n"
                "    fi\n"
                "    case $command:$previous in\n",
                commandNames(application).c_str(), namesOfOptions(application).c_str());
    for (const CLI::App* command : visibleCommands(application))
        printValueCases(*command);
    std::printf("    esac\n"
                "    if [[ $word == -* ]]; then\n"
                "        local options=\n"
                "        case $command in\n");
    for (const CLI::App* command : visibleCommands(application))
        std::printf("            %s) options=\"%s\" ;;\n", command->get_name().c_str(),
                    namesOfOptions(*command).c_str());
    std::printf("        esac\n"
                "        COMPREPLY=($(compgen -W \"$options\" -- \"$word\"))\n"
                "        return\n"
                "    fi\n"
                "    case $command in\n"
                "        nodes)\n"
                "            COMPREPLY=($(compgen -W \"$(\"${COMP_WORDS[0]}\" nodes 2>/dev/null |\n"
                "                sed -n '2,$s/ .*//p')\" -- \"$word\")) ;;\n"
                "        completion) COMPREPLY=($(compgen -W bash -- \"$word\")) ;;\n"
                "        version) ;;\n"
                "        *) COMPREPLY=($(compgen -f -- \"$word\")) ;;\n"
                "    esac\n"
                "}\n"
                "complete -o filenames -F _ruvell ruvell\n");
}

static int run(CLI::App& app)
{
    confineWithoutScenes(safety, {});
    printScript(*app.get_parent());
    return exit_success;
}

const Command command_completion = {
    .name = "completion",
    .summary = "Print the completion script of a shell",
    .setup = setup,
    .run = run,
    .footer = "Example:\n  source <(ruvell completion bash)",
};

} // namespace ruvell
