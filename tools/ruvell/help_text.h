// How help is laid out, and the options of the command line as text for the pages made from them.
#ifndef RUVELL_HELP_TEXT_H
#define RUVELL_HELP_TEXT_H

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace ruvell {

std::shared_ptr<CLI::Formatter> makeHelpFormatter();

// The sub-commands that help shows.
std::vector<const CLI::App*> visibleCommands(const CLI::App& application);

// The options that begin with a dash, help included; and the arguments without.
std::vector<const CLI::Option*> namedOptions(const CLI::App& app);
std::vector<const CLI::Option*> positionals(const CLI::App& app);

// "-o, --output"; the names of one option, short ones first.
std::vector<std::string> optionNames(const CLI::Option& option);

// What follows the name of an option: "FILE"; empty for flags.
std::string valueName(const CLI::Option& option);

// "SCENE..." or "[TYPE]".
std::string positionalText(const CLI::Option& option);

} // namespace ruvell

#endif
