// userdefs: user parameters declared on single nodes, and user data read or written at a shading
// point (rv_userdata.h).
#include "userdefs.h"

#include "array.h"
#include "frame.h"
#include "hash.h"
#include "maths.h"
#include "nodes.h"
#include "rv_msg.h"
#include "shading_state.h"
#include "strpool.h"
#include "text.h"

#include <stdio.h>

static const char* const module_path = "core\\src\\userdefs";

namespace rv {

// ---- Declarations ----

static constexpr size_t max_word = 16; // longer words are no keywords

// Splits a text at blanks.
struct WordReader {
    const char* cursor;

    // The next word in upper case, cut to what fits; false at the end.
    bool next(char (&word)[max_word])
    {
        while (*cursor == ' ' || *cursor == '\t')
            ++cursor;
        if (!*cursor)
            return false;
        size_t length = 0;
        for (; *cursor && *cursor != ' ' && *cursor != '\t'; ++cursor)
            if (length + 1 < max_word)
                word[length++] = upperCase(*cursor);
        word[length] = '\0';
        return true;
    }
};

struct Keyword {
    const char* word;
    int value;
};

static const Keyword class_words[] = {
    { "CONSTANT", RV_USERDEF_CONSTANT },
    { "UNIFORM", RV_USERDEF_UNIFORM },
    { "VARYING", RV_USERDEF_VARYING },
};

static const Keyword type_words[] = {
    { "BYTE", RV_TYPE_BYTE },     { "INT", RV_TYPE_INT },         { "UINT", RV_TYPE_UINT },
    { "BOOL", RV_TYPE_BOOLEAN },  { "FLOAT", RV_TYPE_FLOAT },     { "RGB", RV_TYPE_RGB },
    { "RGBA", RV_TYPE_RGBA },     { "VECTOR", RV_TYPE_VECTOR },   { "POINT", RV_TYPE_POINT },
    { "POINT2", RV_TYPE_POINT2 }, { "MATRIX", RV_TYPE_MATRIX },   { "STRING", RV_TYPE_STRING },
    { "ARRAY", RV_TYPE_ARRAY },   { "POINTER", RV_TYPE_POINTER }, { "NODE", RV_TYPE_NODE },
    { "LONG", RV_TYPE_UINT }, // Required: both aliases stay
    { "ABSRGB", RV_TYPE_RGB },
};

template <size_t count> static int keywordValue(const Keyword (&words)[count], const char* word)
{
    for (const Keyword& row : words)
        if (!strcmp(row.word, word))
            return row.value;
    return -1;
}

bool UserDefParseDeclaration(const char* name, const char* declaration, UserDeclaration* out)
{
    if (!name || !*name) {
        RvMsgError("user-define is missing a name!");
        return false;
    }
    if (!declaration) {
        RvMsgError("%s: missing declaration!", name);
        return false;
    }
    const auto tooFew = [&] {
        RvMsgError("%s: poorly typed user-define -- too few parameters: %s", name, declaration);
        return false;
    };
    const auto badType = [&] {
        RvMsgError("%s: poorly typed user-defined var -- bad type: %s", name, declaration);
        return false;
    };
    WordReader reader = { declaration };
    char word[max_word];
    if (!reader.next(word))
        return tooFew();
    out->category = keywordValue(class_words, word);
    if (out->category < 0) {
        RvMsgError("%s: poorly typed user-defined var -- bad class: %s", name, declaration);
        return false;
    }
    if (!reader.next(word))
        return tooFew();
    out->type = keywordValue(type_words, word);
    out->array_type = RV_TYPE_NONE;
    if (out->type < 0)
        return badType();
    if (out->type == RV_TYPE_ARRAY) {
        if (!reader.next(word)) {
            RvMsgError("%s: missing array type! %s", name, declaration);
            return false;
        }
        out->array_type = keywordValue(type_words, word);
        if (out->array_type < 0)
            return badType();
    }
    if (reader.next(word)) {
        RvMsgError("%s: poorly typed user-define -- too many parameters: %s", name, declaration);
        return false;
    }
    return true;
}

// ---- The table of a node ----

static constexpr unsigned max_user_params = UINT16_MAX;

static RtUserParamEntry* findOwn(const RtNode* node, uint32_t hash, const char* name)
{
    for (unsigned i = 0; i < node->user_param_count; ++i) {
        RtUserParamEntry& entry = node->user_params[i];
        if (entry.hash == hash && entry.category && entry.name && !strcmp(entry.name, name))
            return &entry;
    }
    return nullptr;
}

RtUserParamEntry* findUserParam(const RtNode* node, const char* name, bool with_sources)
{
    if (!node || !name || !*name)
        return nullptr;
    // Most nodes have no user parameters: the name is hashed for those that do.
    uint32_t hash = 0;
    for (bool is_hashed = false; node; node = with_sources ? node->source : nullptr) {
        if (!node->user_param_count)
            continue;
        if (!is_hashed)
            hash = stringHash(name);
        is_hashed = true;
        if (RtUserParamEntry* const found = findOwn(node, hash, name))
            return found;
    }
    return nullptr;
}

static void releaseValue(RtUserParamEntry* entry)
{
    if (holdsArray(*entry))
        RvArrayDestroy(entry->value.ARRAY);
    else if (entry->type == RV_TYPE_STRING)
        releaseString(entry->value.STR);
    else if (entry->type == RV_TYPE_MATRIX)
        RvFree_func(entry->value.pMTX);
}

static void releaseEntry(RtUserParamEntry* entry)
{
    releaseString(entry->name);
    releaseValue(entry);
}

void disableUserParam(RtUserParamEntry* entry)
{
    const int element_type = userElementType(*entry);
    const bool is_array = holdsArray(*entry);
    releaseEntry(entry);
    *entry = { .hash = 0,
               .category = 0,
               .type = entry->type,
               .array_type = entry->array_type,
               .name = internString(""),
               .value = {} };
    if (is_array) {
        // Without a category only the type tells that the value is an array.
        entry->type = RV_TYPE_ARRAY;
        entry->array_type = static_cast<uint8_t>(element_type);
        entry->value.ARRAY = RvArrayAllocate(0, 1, element_type);
    } else if (entry->type == RV_TYPE_STRING) {
        entry->value.STR = internString("");
    }
}

// Appends an entry, which the table then owns; on failure it stays the caller's.
static RtUserParamEntry* attachEntry(RtNode* node, const RtUserParamEntry& entry)
{
    if (node->user_param_count == max_user_params)
        return nullptr;
    const unsigned bytes =
        (node->user_param_count + 1u) * static_cast<unsigned>(sizeof(RtUserParamEntry));
    void* const table = RvRealloc_func(node->user_params, bytes, module_path, __LINE__,
                                       "RvNodeAttachUserParamEntry");
    if (!table)
        return nullptr;
    node->user_params = static_cast<RtUserParamEntry*>(table);
    RtUserParamEntry* const attached = &node->user_params[node->user_param_count++];
    *attached = entry;
    return attached;
}

static RtUserParamEntry* addEntry(RtNode* node, const char* name, const UserDeclaration& declared)
{
    RtUserParamEntry entry = {};
    entry.hash = stringHash(name);
    entry.category = static_cast<int8_t>(declared.category);
    entry.type = static_cast<uint8_t>(declared.type);
    entry.array_type = static_cast<uint8_t>(declared.array_type);
    entry.name = internString(name);
    if (holdsArray(entry))
        entry.value.ARRAY = RvArrayAllocate(0, 1, userElementType(entry));
    const bool complete = entry.name && (!holdsArray(entry) || entry.value.ARRAY);
    RtUserParamEntry* const attached = complete ? attachEntry(node, entry) : nullptr;
    if (!attached)
        releaseEntry(&entry);
    return attached;
}

static bool copyValue(RtUserParamEntry* to, const RtUserParamEntry& from)
{
    if (holdsArray(from)) {
        to->value.ARRAY = from.value.ARRAY ? RvArrayCopy(from.value.ARRAY) : nullptr;
        return to->value.ARRAY || !from.value.ARRAY;
    }
    if (from.type == RV_TYPE_STRING)
        to->value.STR = internString(from.value.STR);
    if (from.type == RV_TYPE_MATRIX && from.value.pMTX) {
        to->value.PTR = RvMalloc_func(sizeof(RtMatrix), module_path, __LINE__, "RvNodeCopy");
        if (to->value.pMTX)
            *to->value.pMTX = *from.value.pMTX;
        return to->value.pMTX != nullptr;
    }
    return true;
}

bool copyUserParams(RtNode* to, const RtNode* from)
{
    for (unsigned i = 0; i < from->user_param_count; ++i) {
        const RtUserParamEntry& source = from->user_params[i];
        RtUserParamEntry copy = source;
        copy.name = internString(source.name);
        if (!copyValue(&copy, source) || !attachEntry(to, copy)) {
            releaseEntry(&copy);
            return false;
        }
    }
    return true;
}

void releaseUserParams(RtNode* node)
{
    for (unsigned i = 0; i < node->user_param_count; ++i)
        releaseEntry(&node->user_params[i]);
    RvFree_func(node->user_params);
    node->user_params = nullptr;
    node->user_param_count = 0;
}

int userElementType(const RtUserParamEntry& entry)
{
    if (entry.type != RV_TYPE_ARRAY)
        return entry.type;
    return entry.category == RV_USERDEF_CONSTANT ? entry.array_type : RV_TYPE_ARRAY;
}

static bool nameIsTaken(const RtNode* node, const char* name)
{
    return findParameter(node->entry, name).param || findUserParam(node, name, true);
}

// ---- Reading at a shading point ----

static bool acceptsUserType(int stored, int wanted)
{
    return stored == wanted || (stored == RV_TYPE_NODE && wanted == RV_TYPE_POINTER);
}

static const char* userTypeName(int type)
{
    const char* const name = silentTypeName(type);
    return name ? name : "";
}

// Copies element `index` of an array of user data.
static bool readElement(const RtArray* array, int type, unsigned index, void* out)
{
    if (!array) {
        RvMsgError("reading user-data(): accessing NULL array");
        return false;
    }
    if (!acceptsUserType(array->type, type)) {
        RvMsgError("reading user-data():  value mismatch problem:  attempting to get a '%s' value "
                   "from a '%s' array",
                   userTypeName(type), userTypeName(array->type));
        return false;
    }
    const unsigned total = totalElements(array);
    if (index >= total || !array->data) {
        RvMsgError("reading user-data(): out-of-range error (index %u of %u)", index, total);
        return false;
    }
    const char* const elements = static_cast<const char*>(array->data);
    copyElement(out, elements + size_t(typeSize(type)) * index, type);
    return true;
}

static bool readUserValue(const RtUserParamEntry& entry, int type, const RtShaderGlobals* sg,
                          void* out)
{
    if (entry.category == RV_USERDEF_CONSTANT) {
        if (!acceptsUserType(entry.type, type))
            return false;
        memcpy(out, static_cast<const void*>(&entry.value), typeSize(type));
        return true;
    }
    // Without the shape's help the value is that of the primitive.
    return readElement(entry.value.ARRAY, type, sg->prim_index, out);
}

static bool readUserData(const char* name, const RtShaderGlobals* sg, int type, void* out)
{
    if (!name || !sg || !out)
        return false;
    RtUserDataHit* const hit = sg->state ? sg->state->user_data : nullptr;
    if (hit) {
        const RtUserParamEntry* const entry = findUserParam(hit->node, name, true);
        if (entry && hit->read(hit, entry, type, out))
            return true;
    }
    for (const RtNode* node : { sg->object, sg->instance })
        if (const RtUserParamEntry* const entry = findUserParam(node, name, true))
            return readUserValue(*entry, type, sg, out);
    return false;
}

// ---- Writing from displacement ----

static constexpr uint8_t displacement_stage = 3;

// The varying parameter to write to, declared when it is missing; null after a message.
static RtUserParamEntry* varyingParam(const char* name, RtNode* node, int type)
{
    RtUserParamEntry* entry = findUserParam(node, name, true);
    if (!entry) {
        char declaration[32];
        snprintf(declaration, sizeof declaration, "varying %s", userTypeName(type));
        if (!RvNodeDeclare(node, name, declaration))
            return nullptr;
        entry = findUserParam(node, name, false);
        RvArrayDestroy(entry->value.ARRAY);
        entry->value.ARRAY = RvArrayAllocate(the_frame->hooks->shapeVertexCount(node), 1, type);
    }
    if (entry->category == RV_USERDEF_VARYING)
        return entry;
    RvMsgError(entry->category == RV_USERDEF_UNIFORM
                   ? "problem -- attempting to write into a uniform parameter"
                   : "problem -- attempting to write into a constant parameter");
    return nullptr;
}

static bool writeVarying(const char* name, RtShaderGlobals* sg, int type, const void* value)
{
    if (!name || !sg || !value)
        return false;
    if (sg->stage != displacement_stage) {
        RvMsgWarning("attempting to write to varying-parameter from outside a displacement shader");
        return false;
    }
    if (!sg->object || !sg->state)
        return false;
    RtUserParamEntry* const entry = varyingParam(name, sg->object, type);
    if (!entry)
        return false;
    RtArray* const array = entry->value.ARRAY;
    const unsigned index = sg->state->vertex_index;
    if (!array || !array->data || array->type != type || index >= totalElements(array)) {
        RvMsgWarning("attempting to set varying parameter '%s' failed!", name);
        return false;
    }
    const size_t size = typeSize(type);
    memcpy(static_cast<char*>(array->data) + size * index, value, size);
    return true;
}

} // namespace rv

bool RvNodeDeclare(RtNode* node, const char* name, const char* declaration)
{
    if (!node || !name)
        return false;
    if (!rv::isValidName(name, ":./|-")) {
        RvMsgError("parameter name contains invalid characters: \"%s\"", name);
        return false;
    }
    const char* const text = declaration ? declaration : "";
    if (rv::nameIsTaken(node, name)) {
        RvMsgWarning("cannot declare %s %s on %s - name already in use", text, name,
                     RvNodeGetName(node));
        return false;
    }
    rv::UserDeclaration declared;
    if (!rv::UserDefParseDeclaration(name, declaration, &declared))
        return false;
    if (declared.category == RV_USERDEF_VARYING && RvNodeIs(node, "ginstance")) {
        RvMsgWarning("cannot declare %s %s on instance %s", text, name, RvNodeGetName(node));
        return false;
    }
    return rv::addEntry(node, name, declared) != nullptr;
}

const RtUserParamEntry* RvNodeLookUpUserParameter(const RtNode* node, const char* name)
{
    return rv::findUserParam(node, name, true);
}

// ---- Entries and iteration ----

const char* RvUserParamGetName(const RtUserParamEntry* entry)
{
    return entry ? entry->name : nullptr;
}

int RvUserParamGetType(const RtUserParamEntry* entry) { return entry ? entry->type : RV_TYPE_NONE; }

int RvUserParamGetArrayType(const RtUserParamEntry* entry)
{
    return entry ? entry->array_type : RV_TYPE_NONE;
}

int RvUserParamGetCategory(const RtUserParamEntry* entry) { return entry ? entry->category : 0; }

// Required: a placeholder that stays as it is.
int RvUserParamGetIndex(const RtUserParamEntry*) { return -1; }

RtUserParamIterator* RvNodeGetUserParamIterator(const RtNode* node)
{
    if (!node)
        return nullptr;
    RtUserParamIterator* const it = static_cast<RtUserParamIterator*>(RvMalloc_func(
        sizeof(RtUserParamIterator), module_path, __LINE__, "RvNodeGetUserParamIterator"));
    if (it)
        *it = { node, 0 };
    return it;
}

const RtUserParamEntry* RvUserParamIteratorGetNext(RtUserParamIterator* it)
{
    return RvUserParamIteratorFinished(it) ? nullptr : &it->node->user_params[it->position++];
}

bool RvUserParamIteratorFinished(const RtUserParamIterator* it)
{
    return !it || it->position >= it->node->user_param_count;
}

void RvUserParamIteratorDestroy(RtUserParamIterator* it) { RvFree_func(it); }

// ---- Access at a shading point ----

#define RV_VARYING_TYPES(X) /* suffix, C type, type code */                                        \
    X(Bool, bool, RV_TYPE_BOOLEAN)                                                                 \
    X(Byte, uint8_t, RV_TYPE_BYTE)                                                                 \
    X(Int, int, RV_TYPE_INT)                                                                       \
    X(UInt, unsigned int, RV_TYPE_UINT)                                                            \
    X(Flt, float, RV_TYPE_FLOAT)                                                                   \
    X(RGB, RtRGB, RV_TYPE_RGB)                                                                     \
    X(RGBA, RtRGBA, RV_TYPE_RGBA)                                                                  \
    X(Vec, RtVector, RV_TYPE_VECTOR)                                                               \
    X(Pnt, RtPoint, RV_TYPE_POINT)                                                                 \
    X(Pnt2, RtPoint2, RV_TYPE_POINT2)

#define RV_DEFINE_USER_GET(Suffix, Type, code)                                                     \
    bool RvUserGet##Suffix##Func(const char* name, const RtShaderGlobals* sg, Type* out)           \
    {                                                                                              \
        return rv::readUserData(name, sg, code, out);                                              \
    }

#define RV_DEFINE_SET_VARYING(Suffix, Type, code)                                                  \
    bool RvSetVarying##Suffix##Func(const char* name, RtShaderGlobals* sg, const Type* value)      \
    {                                                                                              \
        return rv::writeVarying(name, sg, code, value);                                            \
    }

RV_VARYING_TYPES(RV_DEFINE_USER_GET)
RV_DEFINE_USER_GET(Str, const char*, RV_TYPE_STRING)
RV_DEFINE_USER_GET(Ptr, void*, RV_TYPE_POINTER)
RV_DEFINE_USER_GET(Array, RtArray*, RV_TYPE_ARRAY)
RV_VARYING_TYPES(RV_DEFINE_SET_VARYING)
