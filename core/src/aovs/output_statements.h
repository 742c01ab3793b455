// Reading output statements into an output store.
#ifndef RV_OUTPUT_STATEMENTS_H
#define RV_OUTPUT_STATEMENTS_H

#include "aovs/output_store.h"

namespace rv {

// The index of the variable of that name, which is added with that type unless there is one.
int registerAOV(RtAOVOutputStore& store, const char* name, int type);

// Reads one statement, "DRIVER" or "NAME TYPE FILTER DRIVER". A bad one is warned about and leaves
// no output behind. Throws std::bad_alloc.
void parseStatement(RtAOVOutputStore& store, const char* statement);

} // namespace rv

#endif
