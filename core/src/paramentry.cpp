// paramentry: the parameter entries that a node type declares, and enumeration tables. Declared by
// rv_params.h and paramentry.h.
#include "paramentry.h"

#include "msg.h"
#include "nodeentry.h"
#include "strpool.h"
#include "system/memory.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

static constexpr size_t max_name_length = 4095;

// ---- Names ----

static bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

static bool isDigit(char c) { return c >= '0' && c <= '9'; }

namespace rv {

bool isValidName(const char* name, const char* more)
{
    if (!name || !*name || isDigit(*name) || *name == '-')
        return false;
    for (const char* c = name; *c; ++c)
        if (!isLetter(*c) && !isDigit(*c) && *c != '_' && !strchr(more, *c))
            return false;
    return true;
}

} // namespace rv

static bool isDeclared(const RtList* params, const char* name)
{
    for (const RtListNode* node = RvListHead(params); node; node = node->next)
        if (!strcmp(static_cast<const RtParamEntry*>(node->data)->name, name))
            return true;
    return false;
}

// Reports what is wrong with the name of a new parameter, but for a missing one.
static bool mayDeclare(const RtList* params, const char* name)
{
    if (!name)
        return false;
    if (strlen(name) > max_name_length) {
        RvMsgError("parameter name is bigger than %d characters: \"%s\"",
                   static_cast<int>(max_name_length), name);
        return false;
    }
    if (!rv::isValidName(name, "")) {
        RvMsgError("parameter name contains invalid characters: \"%s\"", name);
        return false;
    }
    if (isDeclared(params, name)) {
        RvMsgWarning("parameter \"%s\" is declared already", name);
        return false;
    }
    return true;
}

// ---- Declaration ----

static void releaseValue(int type, const RtParamValue& value)
{
    if (type == RV_TYPE_STRING && value.STR)
        rv::releaseString(value.STR);
    else if (type == RV_TYPE_ARRAY)
        RvArrayDestroy(value.ARRAY);
    else if (type == RV_TYPE_MATRIX)
        RvFree_func(value.pMTX);
}

namespace rv {

void releaseParamEntry(RtParamEntry* entry)
{
    if (entry->name)
        releaseString(entry->name);
    releaseValue(entry->type, entry->default_value);
}

} // namespace rv

// Adds an entry that takes over the value. What was made for a refused declaration is released.
static void declare(RtList* params, int offset, const char* name, int type,
                    const RtParamValue& value, const char* const* enum_names = nullptr)
{
    if (!params || !mayDeclare(params, name)) {
        // Required: an array is not taken over; it may be the default of another parameter.
        if (type != RV_TYPE_ARRAY)
            releaseValue(type, value);
        return;
    }
    void* const memory =
        RvMalloc_func(sizeof(RtParamEntry), "core\\src\\paramentry", __LINE__, "RvParamEntry");
    if (!memory) {
        releaseValue(type, value);
        return;
    }
    RtParamEntry* const entry = static_cast<RtParamEntry*>(memory);
    *entry = { .type = static_cast<uint16_t>(type),
               .index = static_cast<uint16_t>(RvListSize(params)),
               .enum_names = enum_names,
               .name = rv::internString(name),
               .default_value = value,
               .offset = offset };
    if (!entry->name || !RvListAdd(params, entry)) {
        rv::releaseParamEntry(entry);
        RvFree_func(entry);
    }
}

void RvNodeParamBYTE(RtList* params, int offset, const char* name, uint8_t value)
{
    declare(params, offset, name, RV_TYPE_BYTE, { .BYTE = value });
}

void RvNodeParamINT(RtList* params, int offset, const char* name, int value)
{
    declare(params, offset, name, RV_TYPE_INT, { .INT = value });
}

void RvNodeParamUINT(RtList* params, int offset, const char* name, unsigned value)
{
    declare(params, offset, name, RV_TYPE_UINT, { .UINT = value });
}

void RvNodeParamBOOL(RtList* params, int offset, const char* name, bool value)
{
    declare(params, offset, name, RV_TYPE_BOOLEAN, { .BOOL = value });
}

void RvNodeParamFLT(RtList* params, int offset, const char* name, float value)
{
    declare(params, offset, name, RV_TYPE_FLOAT, { .FLT = value });
}

void RvNodeParamRGB(RtList* params, int offset, const char* name, float r, float g, float b)
{
    declare(params, offset, name, RV_TYPE_RGB, { .RGB = { r, g, b } });
}

void RvNodeParamRGBA(RtList* params, int offset, const char* name, float r, float g, float b,
                     float a)
{
    declare(params, offset, name, RV_TYPE_RGBA, { .RGBA = { r, g, b, a } });
}

void RvNodeParamVEC(RtList* params, int offset, const char* name, float x, float y, float z)
{
    declare(params, offset, name, RV_TYPE_VECTOR, { .VEC = { x, y, z } });
}

void RvNodeParamPNT(RtList* params, int offset, const char* name, float x, float y, float z)
{
    declare(params, offset, name, RV_TYPE_POINT, { .PNT = { x, y, z } });
}

void RvNodeParamPNT2(RtList* params, int offset, const char* name, float x, float y)
{
    declare(params, offset, name, RV_TYPE_POINT2, { .PNT2 = { x, y } });
}

void RvNodeParamSTR(RtList* params, int offset, const char* name, const char* value)
{
    const char* const pooled = rv::internString(value ? value : "");
    declare(params, offset, name, RV_TYPE_STRING, { .STR = pooled });
}

void RvNodeParamPTR(RtList* params, int offset, const char* name, void* value)
{
    declare(params, offset, name, RV_TYPE_POINTER, { .PTR = value });
}

void RvNodeParamNODE(RtList* params, int offset, const char* name, RtNode* value)
{
    declare(params, offset, name, RV_TYPE_NODE, { .NODE = value });
}

void RvNodeParamARRAY(RtList* params, int offset, const char* name, RtArray* array)
{
    declare(params, offset, name, RV_TYPE_ARRAY, { .ARRAY = array });
}

void RvNodeParamMTX(RtList* params, int offset, const char* name, const RtMatrix* matrix)
{
    void* const block =
        RvMalloc_func(sizeof(RtMatrix), "core\\src\\paramentry", __LINE__, "RvNodeParamMTX");
    if (!block)
        return;
    RtMatrix* const value = static_cast<RtMatrix*>(block);
    *value = matrix ? *matrix : RV_M4_ZERO;
    declare(params, offset, name, RV_TYPE_MATRIX, { .pMTX = value });
}

void RvNodeParamENUM(RtList* params, int offset, const char* name, int value,
                     const char* const* enum_names)
{
    declare(params, offset, name, RV_TYPE_ENUM, { .ENUM = value }, enum_names);
}

// ---- Entries ----

const char* RvParamGetName(const RtParamEntry* entry) { return entry ? entry->name : nullptr; }

int RvParamGetType(const RtParamEntry* entry) { return entry ? entry->type : RV_TYPE_NONE; }

const RtParamValue* RvParamGetDefault(const RtParamEntry* entry)
{
    return entry ? &entry->default_value : nullptr;
}

const char* const* RvParamGetEnum(const RtParamEntry* entry)
{
    return entry ? entry->enum_names : nullptr;
}

const RtParamEntry* RvParamIteratorGetNext(RtParamIterator* it)
{
    return RvParamIteratorFinished(it) ? nullptr : &it->entry->params[it->position++];
}

bool RvParamIteratorFinished(const RtParamIterator* it)
{
    return !it || it->position >= it->entry->num_params;
}

void RvParamIteratorDestroy(RtParamIterator* it) { RvFree_func(it); }

// ---- Enumerations ----

const char* RvEnumGetString(const char* const* enum_names, int value)
{
    if (!enum_names || value < 0)
        return nullptr;
    for (int i = 0; i < value; ++i)
        if (!enum_names[i])
            return nullptr;
    return enum_names[value];
}

int RvEnumGetValue(const char* const* enum_names, const char* text)
{
    if (!enum_names || !text)
        return -1;
    if (isDigit(*text)) {
        const long index = strtol(text, nullptr, 10);
        const int value = index <= INT_MAX ? static_cast<int>(index) : -1;
        return RvEnumValueIsValid(enum_names, value) ? value : -1;
    }
    for (int i = 0; enum_names[i]; ++i)
        if (!strcmp(enum_names[i], text))
            return i;
    return -1;
}

bool RvEnumValueIsValid(const char* const* enum_names, int value)
{
    return RvEnumGetString(enum_names, value) != nullptr;
}
