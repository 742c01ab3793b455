// Message banks: small named values that the shaders of one thread pass to each other.
#ifndef RV_MESSAGE_PASSING_H
#define RV_MESSAGE_PASSING_H

#include "rv_messages.h"
#include "rv_params.h"
#include "system/memory.h"

struct RtMessageBank {
    struct Slot {
        const char* name; // in the pool
        uint32_t hash;
        int type;
        RtParamValue value;
    };

    unsigned capacity;
    unsigned count;
    RtMemPool* pool; // of the thread; holds the names
    Slot* slots;
};

// max(requested, 1) slots, never more than 2^31 - 1 bytes hold; null after an error. The pool
// outlives the bank.
RtMessageBank* RvMessageBank(unsigned requested, RtMemPool* pool);
void RvMessageBankDestroy(RtMessageBank* bank);

namespace rv {

// Forgets every message. Shading code does this between samples, before the names in the pool are
// given back.
void messageBankClear(RtMessageBank* bank);

} // namespace rv

#endif
