// The command line as a whole: the root of the options, made from the list of sub-commands.
#ifndef RUVELL_APPLICATION_H
#define RUVELL_APPLICATION_H

#include "command.h"
#include <memory>

namespace ruvell {

std::unique_ptr<CLI::App> makeApplication();

// The command that was given on the parsed command line; null without one.
const Command* chosenCommand(const CLI::App& application);

} // namespace ruvell

#endif
