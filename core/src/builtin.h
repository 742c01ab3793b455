// The table of the built-in node types.
#ifndef RV_BUILTIN_H
#define RV_BUILTIN_H

namespace rv {

// Installs all of them into the open universe; false when the heap is exhausted.
bool installBuiltInTypes();

} // namespace rv

#endif
