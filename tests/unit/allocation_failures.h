// Provokes failing allocations, and reads what the allocator reports about them.
#ifndef RV_ALLOCATION_FAILURES_H
#define RV_ALLOCATION_FAILURES_H

#include "system/memory.h"

#include <ctype.h>
#include <string>

// Runs a call during which only `allowed` checked allocations succeed.
template <class Call> void withAllocations(long allowed, Call call)
{
    rv::limitAllocations(allowed);
    call();
    rv::limitAllocations(-1);
}

// Messages without the source lines of allocations, which change with every edit: "():12" becomes
// "()".
inline std::string withoutLines(std::string text)
{
    for (size_t at = text.find("():"); at != std::string::npos; at = text.find("():", at)) {
        size_t end = at + 3;
        while (end < text.size() && isdigit(static_cast<unsigned char>(text[end])))
            ++end;
        text.erase(at + 2, end - at - 2);
    }
    return text;
}

#endif
