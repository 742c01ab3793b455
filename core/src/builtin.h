// The table of the built-in node types.
#ifndef RV_BUILTIN_H
#define RV_BUILTIN_H

namespace rv {

// Installs all of them into the open universe.
void installBuiltInTypes();

} // namespace rv

#endif
