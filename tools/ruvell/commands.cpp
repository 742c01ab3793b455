// The list of sub-commands.
#include "command.h"

namespace ruvell {

static const Command* const command_list[] = {
    &command_version,
};

std::span<const Command* const> commands() { return command_list; }

} // namespace ruvell
