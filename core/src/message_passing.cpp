// message_passing: the bank of named, typed values that the shaders of one thread pass to each
// other. Declared by rv_messages.h and message_passing.h.
#include "message_passing.h"

#include "frame.h"
#include "hash.h"
#include "maths.h"
#include "msg.h"
#include "rv_shaderglobals.h"
#include "thread_slot.h"

#include <algorithm>
#include <limits.h>
#include <new>
#include <stdio.h>
#include <string.h>

struct RtMessageIterator {
    const RtMessageBank* bank;
    unsigned position;
};

// ---- Banks ----

static void* allocateForBank(size_t bytes)
{
    return RvMalloc_func(static_cast<unsigned>(bytes), "core\\src\\message_passing", __LINE__,
                         "RvMessageBank");
}

RtMessageBank* RvMessageBank(unsigned requested, RtMemPool* pool)
{
    const size_t max_capacity = INT_MAX / sizeof(RtMessageBank::Slot);
    const size_t capacity = std::clamp(size_t(requested), size_t(1), max_capacity);
    void* const memory = allocateForBank(sizeof(RtMessageBank));
    void* const slots = memory ? allocateForBank(capacity * sizeof(RtMessageBank::Slot)) : nullptr;
    if (!slots) {
        RvFree_func(memory);
        return nullptr;
    }
    RtMessageBank* const bank = static_cast<RtMessageBank*>(memory);
    *bank = { .capacity = static_cast<unsigned>(capacity),
              .count = 0,
              .pool = pool,
              .slots = static_cast<RtMessageBank::Slot*>(slots) };
    return bank;
}

void RvMessageBankDestroy(RtMessageBank* bank)
{
    if (!bank)
        return;
    RvFree_func(bank->slots);
    RvFree_func(bank);
}

namespace rv {

void messageBankClear(RtMessageBank* bank)
{
    if (bank)
        bank->count = 0;
}

} // namespace rv

// The bank of the thread that shades this context, or null.
static RtMessageBank* bankOf(const RtShaderGlobals* sg)
{
    const RtFrame* const frame = rv::the_frame;
    if (!sg || sg->thread_index >= rv::worker_slot_count || !frame || !frame->thread_slots)
        return nullptr;
    return frame->thread_slots[sg->thread_index].messages;
}

// ---- Messages ----

static RtMessageBank::Slot* findSlot(RtMessageBank* bank, const char* name, uint32_t hash)
{
    for (unsigned i = 0; i < bank->count; ++i) {
        RtMessageBank::Slot& slot = bank->slots[i];
        if (slot.hash == hash && !strcmp(slot.name, name))
            return &slot;
    }
    return nullptr;
}

static bool checkType(const RtMessageBank::Slot& slot, int type)
{
    if (rv::typeAccepts(slot.type, type))
        return true;
    RvMsgError("message `%s' type mismatch; requested type %s but message is of type %s", slot.name,
               rv::silentTypeName(type), rv::silentTypeName(slot.type));
    return false;
}

// A silently lost message would change the shading, so this ends the process.
static void reportFullBank(const RtMessageBank* bank, const char* name, int type)
{
    char listing[2048] = "";
    size_t length = 0;
    for (unsigned i = 0; i < bank->count && length < sizeof(listing) - 1; ++i) {
        const RtMessageBank::Slot& slot = bank->slots[i];
        const int line = snprintf(listing + length, sizeof(listing) - length, "[%3d] %s %s\n",
                                  static_cast<int>(i), rv::silentTypeName(slot.type), slot.name);
        length += static_cast<size_t>(std::max(line, 0));
    }
    RvMsgFatal("Could not create new message named %s of type %s - not enough slots allocated\n"
               "Message bank contents:\n%s",
               name, rv::silentTypeName(type), listing);
}

// Null when the bank is full, or the name cannot be kept.
static RtMessageBank::Slot* addSlot(RtMessageBank* bank, const char* name, uint32_t hash, int type)
{
    if (bank->count >= bank->capacity) {
        reportFullBank(bank, name, type);
        return nullptr;
    }
    const char* const copy = RvMemPoolStrdup(name, bank->pool);
    if (!copy)
        return nullptr;
    RtMessageBank::Slot* const slot = &bank->slots[bank->count++];
    *slot = { .name = copy, .hash = hash, .type = type, .value = {} };
    return slot;
}

// The slot to write a message of this type to, or null.
static RtMessageBank::Slot* slotToSet(const RtShaderGlobals* sg, const char* name, int type)
{
    RtMessageBank* const bank = bankOf(sg);
    if (!bank || !name)
        return nullptr;
    const uint32_t hash = rv::stringHash(name);
    RtMessageBank::Slot* const slot = findSlot(bank, name, hash);
    if (!slot)
        return addSlot(bank, name, hash, type);
    return checkType(*slot, type) ? slot : nullptr;
}

static const RtMessageBank::Slot* slotToGet(const RtShaderGlobals* sg, const char* name, int type)
{
    RtMessageBank* const bank = bankOf(sg);
    if (!bank || !name)
        return nullptr;
    const RtMessageBank::Slot* const slot = findSlot(bank, name, rv::stringHash(name));
    return slot && checkType(*slot, type) ? slot : nullptr;
}

#define RV_MESSAGE_TYPES(X) /* accessor suffix, type code, C type, member of RtParamValue */       \
    X(Bool, RV_TYPE_BOOLEAN, bool, BOOL)                                                           \
    X(Byte, RV_TYPE_BYTE, uint8_t, BYTE)                                                           \
    X(Int, RV_TYPE_INT, int, INT)                                                                  \
    X(UInt, RV_TYPE_UINT, unsigned, UINT)                                                          \
    X(Flt, RV_TYPE_FLOAT, float, FLT)                                                              \
    X(RGB, RV_TYPE_RGB, RtRGB, RGB)                                                                \
    X(RGBA, RV_TYPE_RGBA, RtRGBA, RGBA)                                                            \
    X(Vec, RV_TYPE_VECTOR, RtVector, VEC)                                                          \
    X(Pnt, RV_TYPE_POINT, RtPoint, PNT)                                                            \
    X(Pnt2, RV_TYPE_POINT2, RtPoint2, PNT2)                                                        \
    X(Str, RV_TYPE_STRING, const char*, STR)                                                       \
    X(Ptr, RV_TYPE_POINTER, void*, PTR)                                                            \
    X(Array, RV_TYPE_ARRAY, RtArray*, ARRAY)

#define DEFINE_SET(Suffix, code, Type, member)                                                     \
    bool RvMessageSet##Suffix##Func(const RtShaderGlobals* sg, const char* name, Type value)       \
    {                                                                                              \
        RtMessageBank::Slot* const slot = slotToSet(sg, name, code);                               \
        if (slot)                                                                                  \
            slot->value.member = value;                                                            \
        return slot != nullptr;                                                                    \
    }
#define DEFINE_GET(Suffix, code, Type, member)                                                     \
    bool RvMessageGet##Suffix##Func(const RtShaderGlobals* sg, const char* name, Type* out)        \
    {                                                                                              \
        const RtMessageBank::Slot* const slot = slotToGet(sg, name, code);                         \
        if (slot && out)                                                                           \
            *out = slot->value.member;                                                             \
        return slot != nullptr;                                                                    \
    }

RV_MESSAGE_TYPES(DEFINE_SET)
RV_MESSAGE_TYPES(DEFINE_GET)

// ---- Iteration ----

RtMessageIterator* RvMessageIterator(const RtShaderGlobals* sg)
{
    const RtMessageBank* const bank = bankOf(sg);
    void* const memory = bank ? RvMemPoolAlloc(sizeof(RtMessageIterator), bank->pool) : nullptr;
    return memory ? new (memory) RtMessageIterator{ bank, 0 } : nullptr;
}

bool RvMessageIteratorGetNext(RtMessageIterator* it, const char** name, int* type)
{
    if (!it || it->position >= it->bank->count)
        return false;
    const RtMessageBank::Slot& slot = it->bank->slots[it->position++];
    if (name)
        *name = slot.name;
    if (type)
        *type = slot.type;
    return true;
}
