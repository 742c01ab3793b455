// dotrvs_parse: the grammar of scene files: statements, parameter assignments, declarations and
// arrays.
#include "dotrvs_parse.h"

#include "array.h"
#include "dotrvs_references.h"
#include "msg.h"
#include "options.h"
#include "override.h"
#include "rv_plugins.h"
#include "scene.h"
#include "strpool.h"
#include "text.h"
#include "userdefs.h"

#include <algorithm>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>

static const char* const module_path = "core\\src\\dotrvs";

namespace rv {

// ---- Parameters of nodes ----

static const RtUserParamEntry* userParameter(const RtNode* node, const char* name)
{
    return RvNodeLookUpUserParameter(node, name);
}

int parameterType(const RtNode* node, const char* name)
{
    const RtParamEntry* const param = resolveLinkTarget(node->entry, name).param;
    if (param && param->type != RV_TYPE_NONE)
        return param->type;
    if (const RtUserParamEntry* const user = userParameter(node, name))
        return holdsArray(*user) ? RV_TYPE_ARRAY : int(user->type);
    return !strcmp(name, "@before") ? RV_TYPE_NODE : RV_TYPE_NONE;
}

// Element type that an array parameter is declared with.
static int elementType(const RtNode* node, const char* name)
{
    if (const RtParamEntry* const param = resolveLinkTarget(node->entry, name).param) {
        const bool is_array = param->type == RV_TYPE_ARRAY && param->default_value.ARRAY;
        return is_array ? int(param->default_value.ARRAY->type) : RV_TYPE_NONE;
    }
    const RtUserParamEntry* const user = userParameter(node, name);
    return user ? userElementType(*user) : RV_TYPE_NONE;
}

RtArray* arrayParameter(const RtNode* node, const char* name)
{
    if (const RtParamEntry* const param = findParameter(node->entry, name).param)
        return param->type == RV_TYPE_ARRAY ? loadArray(node, param) : nullptr;
    const RtUserParamEntry* const user = findUserParam(node, name, false);
    return user && holdsArray(*user) ? user->value.ARRAY : nullptr;
}

void giveArray(RtNode* node, const char* name, RtArray* array)
{
    RvNodeSetArray(node, name, array);
    if (arrayParameter(node, name) != array)
        RvArrayDestroy(array);
}

RtArray* adoptBlock(int nelements, int nkeys, int type, void* data)
{
    RtArray* const array = RvArrayConvert(nelements, nkeys, type, data, false);
    if (array)
        array->owns_data = true;
    return array;
}

// ---- Single values ----

static RtNode* lookUpNode(const char* name)
{
    return the_frame && the_frame->scene ? RvNodeLookUpByName(name) : nullptr;
}

// The node that a value names. Required: the word NULL names none, not even a node of that name.
static RtNode* lookUpPointee(const char* name)
{
    return isNullName(name) ? nullptr : lookUpNode(name);
}

static bool isDigit(char c) { return c >= '0' && c <= '9'; }

static bool parseBoolean(const char* token)
{
    const int kind = RvRVSTokenKind(token);
    if (isBooleanKeyword(kind))
        return kind % 2 == 0;
    if (isDigit(*token))
        return textToDouble(token) != 0;
    RvMsgError("unknown boolean token");
    return false;
}

static size_t readPlain(RtRVSFile* file, float* out, size_t max_count)
{
    return readPlainFloats(file, out, max_count);
}
static size_t readPlain(RtRVSFile* file, int32_t* out, size_t max_count)
{
    return readPlainIntegers(file, out, max_count);
}
static size_t readPlain(RtRVSFile* file, uint8_t* out, size_t max_count)
{
    return readPlainBytes(file, out, max_count);
}

static void convert(const char* token, float* out) { *out = float(textToDouble(token)); }
static void convert(const char* token, int32_t* out) { *out = textToInteger(token); }
static void convert(const char* token, uint8_t* out) { *out = uint8_t(textToInteger(token)); }

// Reads numbers, one token each. Returns how many there were before the end of the input.
template <class Number> static size_t readNumbers(RtRVSFile* file, Number* out, size_t count)
{
    char* const token = tokenArea(file, RV_AREA_A);
    for (size_t i = 0;; ++i) {
        i += readPlain(file, out + i, count - i);
        if (i == count)
            return count;
        if (RvRVSReadToken(file, token) == 0 && atEnd(file))
            return i;
        convert(token, out + i);
    }
}

template <class Number> static Number readNumber(RtRVSFile* file)
{
    Number value = 0;
    readNumbers(file, &value, 1);
    return value;
}

// ---- Arrays ----

namespace {

// What the value of an array parameter is read with.
struct ArrayReader {
    RtRVSFile* file;
    const char* param;
    RtNode* node;
    int depth;        // of arrays within arrays
    bool has_stopped; // for good: the input has ended or cannot be understood
};

// A block that grows as its elements arrive, so that a header promises nothing.
struct Elements {
    char* data = nullptr;
    uint64_t capacity = 0; // bytes
    uint64_t filled = 0;   // bytes
};

struct Header {
    uint64_t nelements, nkeys;
    int type;
};

} // namespace

static constexpr int max_array_depth = 64;
static constexpr uint64_t first_capacity = 65536;
// What may be missing at the end of the input.
static constexpr uint64_t max_missing_bytes = 1 << 20;

static bool grow(Elements* elements, uint64_t total_bytes)
{
    const uint64_t capacity =
        std::min(total_bytes, std::max(first_capacity, 2 * elements->capacity));
    void* const data = RvRealloc_func(elements->data, static_cast<unsigned>(capacity), module_path,
                                      __LINE__, "RvRVSParseArray");
    if (!data)
        return false;
    elements->data = static_cast<char*>(data);
    elements->capacity = capacity;
    return true;
}

// Strings and arrays that the elements [first, end) hold.
static void releaseElements(int type, void* data, uint64_t first, uint64_t end)
{
    void** const elements = static_cast<void**>(data);
    for (uint64_t i = first; i < end; ++i) {
        if (type == RV_TYPE_STRING && elements[i])
            releaseString(static_cast<const char*>(elements[i]));
        if (type == RV_TYPE_ARRAY)
            RvArrayDestroy(static_cast<RtArray*>(elements[i]));
    }
}

static void freeElements(int type, const Elements& elements)
{
    releaseElements(type, elements.data, 0, elements.filled / typeSize(type));
    RvFree_func(elements.data);
}

// Count of a header; not valid only where strtol() overflows, so that other text is a valid 0.
static bool parseCount(const char* token, uint64_t* count, bool* is_positive)
{
    errno = 0;
    const long value = strtol(token, nullptr, 10);
    *is_positive = value > 0;
    *count = value > 0 ? uint64_t(value) : 0;
    return errno == 0;
}

static int headerType(const char* token)
{
    static constexpr struct {
        const char* name;
        int type;
    } types[] = {
        { "BYTE", RV_TYPE_BYTE },     { "INT", RV_TYPE_INT },         { "UINT", RV_TYPE_UINT },
        { "BOOL", RV_TYPE_BOOLEAN },  { "FLOAT", RV_TYPE_FLOAT },     { "RGB", RV_TYPE_RGB },
        { "RGBA", RV_TYPE_RGBA },     { "VECTOR", RV_TYPE_VECTOR },   { "POINT", RV_TYPE_POINT },
        { "POINT2", RV_TYPE_POINT2 }, { "MATRIX", RV_TYPE_MATRIX },   { "STRING", RV_TYPE_STRING },
        { "ARRAY", RV_TYPE_ARRAY },   { "POINTER", RV_TYPE_POINTER }, { "NODE", RV_TYPE_NODE },
        { "LONG", RV_TYPE_UINT },     { "ABSRGB", RV_TYPE_RGB },
    };
    for (const auto& row : types)
        if (equalIgnoringCase(token, row.name))
            return row.type;
    return RV_TYPE_NONE;
}

// Reads "count keys TYPE". Where something else stands it is a single element, and is put back.
static Header readHeader(const ArrayReader& reader)
{
    ReadToken tokens[3];
    for (int i = 0; i < 3; ++i) {
        char* const area = tokenArea(reader.file, TokenArea(RV_AREA_A + i));
        RvRVSReadToken(reader.file, area);
        tokens[i] = { area, reader.file->is_cut };
    }
    Header header = { .nelements = 0, .nkeys = 0, .type = headerType(tokens[2].text) };
    bool has_elements = false, has_keys = false;
    const bool is_first_valid = parseCount(tokens[0].text, &header.nelements, &has_elements);
    const bool is_second_valid = parseCount(tokens[1].text, &header.nkeys, &has_keys);
    if (!is_first_valid || !is_second_valid || header.type == RV_TYPE_NONE) {
        pushBack(reader.file, tokens);
        return { 1, 1, elementType(reader.node, reader.param) };
    }
    if (has_elements && !strtol(tokens[1].text, nullptr, 10))
        RvMsgError("%s: array with zero motion keys", reader.param);
    return header;
}

static RtArray* readArray(ArrayReader* reader);

// The readers of elements fill `out` with at most `size` bytes and return how many they filled;
// fewer only at the end of the input, or when the reader has stopped.
template <class Number>
static uint64_t readNumberElements(RtRVSFile* file, void* out, uint64_t size)
{
    return readNumbers(file, static_cast<Number*>(out), size / sizeof(Number)) * sizeof(Number);
}

// Calls read(token area, element) for every element, until it returns false.
template <class T, class Read> static uint64_t readEach(void* out, uint64_t size, Read read)
{
    T* const elements = static_cast<T*>(out);
    const uint64_t count = size / sizeof(T);
    uint64_t i = 0;
    while (i < count && read(&elements[i]))
        ++i;
    return i * sizeof(T);
}

static uint64_t readBooleans(RtRVSFile* file, void* out, uint64_t size)
{
    char* const token = tokenArea(file, RV_AREA_A);
    return readEach<uint8_t>(out, size, [&](uint8_t* element) {
        if (RvRVSReadToken(file, token) == 0 && atEnd(file))
            return false;
        *element = parseBoolean(token);
        return true;
    });
}

static uint64_t readStrings(RtRVSFile* file, void* out, uint64_t size)
{
    char* const word = tokenArea(file, RV_AREA_A);
    return readEach<const char*>(out, size, [&](const char** element) {
        if (RvRVSReadWord(file, word) == 0 && atEnd(file))
            return false;
        *element = internString(word);
        return true;
    });
}

static uint64_t readArrays(ArrayReader* reader, void* out, uint64_t size)
{
    ++reader->depth;
    const uint64_t filled = readEach<RtArray*>(out, size, [&](RtArray** element) {
        if (reader->has_stopped)
            return false;
        *element = readArray(reader); // null where it failed; the others may follow
        return true;
    });
    --reader->depth;
    return filled;
}

// Nodes that do not exist yet are left null; references to them are added to `waiting`.
static uint64_t readNodes(const ArrayReader& reader, const Header& header, uint64_t first_index,
                          RtList* waiting, void* out, uint64_t size)
{
    char* const word = tokenArea(reader.file, RV_AREA_A);
    uint64_t index = first_index;
    return readEach<RtNode*>(out, size, [&](RtNode** element) {
        if (RvRVSReadWord(reader.file, word) == 0 && atEnd(reader.file))
            return false;
        *element = lookUpPointee(word);
        RtRVSFwdRef* const reference =
            *element || !waiting
                ? nullptr
                : RvRVSFwdRef(reader.node, reader.param, word, false, true, unsigned(index),
                              unsigned(header.nelements), unsigned(header.nkeys), nullptr);
        if (reference && !RvListAdd(waiting, reference))
            freeReference(reference);
        ++index;
        return true;
    });
}

static uint64_t readElements(ArrayReader* reader, const Header& header, RtList* waiting,
                             uint64_t offset, void* out, uint64_t size)
{
    switch (header.type) {
    case RV_TYPE_BYTE: return readNumberElements<uint8_t>(reader->file, out, size);
    case RV_TYPE_INT:
    case RV_TYPE_UINT: return readNumberElements<int32_t>(reader->file, out, size);
    case RV_TYPE_BOOLEAN: return readBooleans(reader->file, out, size);
    case RV_TYPE_STRING: return readStrings(reader->file, out, size);
    case RV_TYPE_ARRAY: return readArrays(reader, out, size);
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE:
        return readNodes(*reader, header, offset / sizeof(RtNode*), waiting, out, size);
    default: return readNumberElements<float>(reader->file, out, size);
    }
}

// What is missing at the end of the input is zero, as any value that is read there. A header that
// asks for much more than the input holds gets nothing.
static bool fillMissing(ArrayReader* reader, Elements* elements, uint64_t total_bytes)
{
    if (!reader->has_stopped)
        RvMsgError("%s: unexpected end-of-file in array", reader->param);
    reader->has_stopped = true;
    if (total_bytes - elements->filled > max_missing_bytes)
        return false;
    while (elements->capacity < total_bytes)
        if (!grow(elements, total_bytes))
            return false;
    memset(elements->data + elements->filled, 0, total_bytes - elements->filled);
    return true;
}

static bool fillElements(ArrayReader* reader, const Header& header, RtList* waiting,
                         Elements* elements, uint64_t total_bytes)
{
    while (elements->filled < total_bytes) {
        if (elements->filled == elements->capacity && !grow(elements, total_bytes)) {
            reader->has_stopped = true; // what follows was not read
            return false;
        }
        const uint64_t wanted = elements->capacity - elements->filled;
        const uint64_t filled = readElements(reader, header, waiting, elements->filled,
                                             elements->data + elements->filled, wanted);
        elements->filled += filled;
        if (filled < wanted)
            return fillMissing(reader, elements, total_bytes);
    }
    return true;
}

// Passes the values of an array that cannot be stored.
static void skipValues(RtRVSFile* file, uint64_t count)
{
    char* const token = tokenArea(file, RV_AREA_A);
    for (uint64_t i = 0; i < count; ++i)
        if (RvRVSReadToken(file, token) == 0 && atEnd(file))
            return;
}

static uint64_t saturatedProduct(uint64_t a, uint64_t b)
{
    uint64_t product;
    return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}

static unsigned tokensPerElement(int type)
{
    switch (type) {
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: return 3;
    case RV_TYPE_RGBA: return 4;
    case RV_TYPE_POINT2: return 2;
    case RV_TYPE_MATRIX: return 16;
    default: return 1;
    }
}

// References to elements wait from now on, if the array was made.
static void publishReferences(RtList* waiting, const RtArray* array)
{
    for (RtListNode* element = waiting ? RvListHead(waiting) : nullptr; element;
         element = element->next) {
        auto* const reference = static_cast<RtRVSFwdRef*>(element->data);
        if (array) {
            reference->data = array->data;
            addReference(reference);
        } else {
            freeReference(reference);
        }
    }
    if (waiting)
        RvListDestroy(waiting);
}

// Keys beyond those that an array can have are dropped.
static RtArray* finishArray(const Header& header, const Elements& elements, uint64_t total)
{
    RtArray* const array =
        adoptBlock(int(header.nelements), int(header.nkeys), header.type, elements.data);
    if (array)
        releaseElements(header.type, elements.data, totalElements(array), total);
    else
        freeElements(header.type, elements);
    return array;
}

static RtArray* readStoredArray(ArrayReader* reader, const Header& header, uint64_t total)
{
    const uint64_t total_bytes = saturatedProduct(total, typeSize(header.type));
    if (total_bytes > INT_MAX) {
        reportAllocationFailure(total_bytes, module_path, __LINE__, "RvRVSParseArray");
        const bool holds_arrays = header.type == RV_TYPE_ARRAY; // of as many tokens as they like
        if (!holds_arrays)
            skipValues(reader->file, saturatedProduct(total, tokensPerElement(header.type)));
        reader->has_stopped = holds_arrays || atEnd(reader->file);
        return nullptr;
    }
    const bool holds_nodes = header.type == RV_TYPE_NODE || header.type == RV_TYPE_POINTER;
    RtList* const waiting = holds_nodes ? RvList(nullptr) : nullptr;
    Elements elements;
    RtArray* array = nullptr;
    if (fillElements(reader, header, waiting, &elements, total_bytes))
        array = finishArray(header, elements, total);
    else
        freeElements(header.type, elements);
    publishReferences(waiting, array);
    return array;
}

static RtArray* readArray(ArrayReader* reader)
{
    const Header header = readHeader(*reader);
    if (reader->depth > max_array_depth) {
        RvMsgError("%s: arrays are nested deeper than %d", reader->param, max_array_depth);
        reader->has_stopped = true;
        return nullptr;
    }
    if (header.type >= RV_TYPE_ENUM) {
        RvMsgError("%s: array type %d not yet supported", reader->param, header.type);
        reader->has_stopped = true; // what follows was not read
        return RvArrayConvert(0, 1, header.type, nullptr, true);
    }
    const uint64_t total = saturatedProduct(header.nelements, header.nkeys);
    if (total == 0)
        return RvArrayConvert(0, 1, header.type, nullptr, true);
    return readStoredArray(reader, header, total);
}

// ---- Links and references ----

static bool isLinkable(int type)
{
    switch (type) {
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE:
    case RV_TYPE_ARRAY:
    case RV_TYPE_ENUM:
    case RV_TYPE_NONE: return false;
    default: return true;
    }
}

static bool isLiteralNext(RtRVSFile* file)
{
    skipBlanks(file);
    const char c = peekChar(file);
    return isDigit(c) || c == '.' || c == '-' || c == '"';
}

static void refer(RtNode* node, const char* param, const char* target, bool is_link)
{
    addReference(RvRVSFwdRef(node, param, target, is_link, false, 0, 0, 0, nullptr));
}

// The value is the name of a node, or a Boolean keyword.
static void parseLink(RtRVSFile* file, RtNode* node, const char* name, int type, bool defer)
{
    char* const token = tokenArea(file, RV_AREA_A);
    RvRVSReadToken(file, token);
    if (type == RV_TYPE_BOOLEAN && isBooleanKeyword(RvRVSTokenKind(token)))
        RvNodeSetBool(node, name, parseBoolean(token));
    else if (RtNode* const target = defer ? nullptr : lookUpNode(token))
        RvNodeLink(target, name, node);
    else
        refer(node, name, token, true);
}

// Pointers to code and data that only a program can have. A node in their place would be called,
// or read as what it is not; all other pointers of parameters are pointers to nodes.
static bool holdsAddress(const RtNode* node, const char* name)
{
    static constexpr struct {
        const char *type, *param;
    } addresses[] = {
        { "procedural", "funcptr" },      { "procedural", "userptr" },
        { "driver_display", "callback" }, { "driver_display", "callback_data" },
        { "list_aggregate", "obj_list" },
    };
    const RtParamEntry* const param = findParameter(node->entry, name).param;
    return param && std::any_of(std::begin(addresses), std::end(addresses), [&](const auto& row) {
               return !strcmp(node->entry->name, row.type) && !strcmp(param->name, row.param);
           });
}

static void parseNode(RtRVSFile* file, RtNode* node, const char* name, int type, bool defer)
{
    char* const word = tokenArea(file, RV_AREA_A);
    RvRVSReadWord(file, word);
    if (type == RV_TYPE_POINTER && !isNullName(word) && holdsAddress(node, name)) {
        RvMsgWarning("%s.%s: an address, which only a program can give; ignoring \"%s\"",
                     RvNodeGetName(node), name, word);
        return;
    }
    RtNode* const target = defer ? nullptr : lookUpPointee(word);
    const bool is_before = !strcmp(name, "@before");
    if (!target)
        refer(node, name, word, is_before);
    else if (is_before || target->entry->output_type == type)
        RvNodeLink(target, name, node);
    else
        RvNodeSetPtr(node, name, target);
}

// ---- Assignments ----

static int enumValue(const char* const* names, const char* word)
{
    int count = 0, match = -1;
    for (; names && names[count]; ++count)
        if (match < 0 && !strcmp(names[count], word))
            match = count;
    const int index = isDigit(*word) ? textToInteger(word) : -1;
    return index >= 0 && index < count ? index : match;
}

static void parseEnum(RtRVSFile* file, RtNode* node, const char* name)
{
    char* const word = tokenArea(file, RV_AREA_A);
    RvRVSReadWord(file, word);
    const RtParamEntry* const param = resolveLinkTarget(node->entry, name).param;
    const int value = enumValue(RvParamGetEnum(param), word);
    if (value >= 0)
        RvNodeSetInt(node, name, value);
    else
        RvMsgWarning("invalid enumerated value \"%s\"", word);
}

static void parseFloats(RtRVSFile* file, RtNode* node, const char* name, int type)
{
    float f[16] = {};
    readNumbers(file, f, tokensPerElement(type));
    switch (type) {
    case RV_TYPE_FLOAT: RvNodeSetFlt(node, name, f[0]); break;
    case RV_TYPE_RGB: RvNodeSetRGB(node, name, f[0], f[1], f[2]); break;
    case RV_TYPE_RGBA: RvNodeSetRGBA(node, name, f[0], f[1], f[2], f[3]); break;
    case RV_TYPE_VECTOR: RvNodeSetVec(node, name, f[0], f[1], f[2]); break;
    case RV_TYPE_POINT: RvNodeSetPnt(node, name, f[0], f[1], f[2]); break;
    case RV_TYPE_POINT2: RvNodeSetPnt2(node, name, f[0], f[1]); break;
    default: {
        RtMatrix matrix;
        memcpy(&matrix, f, sizeof matrix);
        RvNodeSetMatrix(node, name, &matrix);
    }
    }
}

static void parseBooleanValue(RtRVSFile* file, RtNode* node, const char* name)
{
    char* const token = tokenArea(file, RV_AREA_A);
    RvRVSReadToken(file, token);
    RvNodeSetBool(node, name, parseBoolean(token));
}

static void parseString(RtRVSFile* file, RtNode* node, const char* name)
{
    char* const word = tokenArea(file, RV_AREA_A);
    RvRVSReadWord(file, word);
    RvNodeSetStr(node, name, word);
}

static void parseValue(RtRVSFile* file, RtNode* node, const char* name, int type, bool defer)
{
    switch (type) {
    case RV_TYPE_BYTE: RvNodeSetByte(node, name, readNumber<uint8_t>(file)); break;
    case RV_TYPE_INT: RvNodeSetInt(node, name, readNumber<int32_t>(file)); break;
    case RV_TYPE_UINT: RvNodeSetUInt(node, name, unsigned(readNumber<int32_t>(file))); break;
    case RV_TYPE_BOOLEAN: parseBooleanValue(file, node, name); break;
    case RV_TYPE_FLOAT:
    case RV_TYPE_RGB:
    case RV_TYPE_RGBA:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT:
    case RV_TYPE_POINT2:
    case RV_TYPE_MATRIX: parseFloats(file, node, name, type); break;
    case RV_TYPE_STRING: parseString(file, node, name); break;
    case RV_TYPE_POINTER:
    case RV_TYPE_NODE: parseNode(file, node, name, type, defer); break;
    case RV_TYPE_ENUM: parseEnum(file, node, name); break;
    case RV_TYPE_ARRAY:
        if (RtArray* const array = RvRVSParseArray(file, name, node))
            giveArray(node, name, array);
        break;
    default:
        // Required: the value is not read and is taken for the next parameter.
        RvMsgWarning("%s.%s: unknown parameter type", RvNodeGetName(node), name);
    }
}

// A word of a declaration; longer ones are cut.
static const char* readDeclarationWord(RtRVSFile* file, TokenArea area)
{
    static constexpr size_t limit = 4095;
    char* const word = tokenArea(file, area);
    if (RvRVSReadWord(file, word) > limit)
        word[limit] = '\0';
    return word;
}

// "declare", whose name, category and type follow.
static void parseDeclaration(RtRVSFile* file, RtNode* node)
{
    const char* const name = readDeclarationWord(file, RV_AREA_NAME);
    const char* const category = readDeclarationWord(file, RV_AREA_A);
    const char* const type = readDeclarationWord(file, RV_AREA_B);
    const char* const element =
        equalIgnoringCase(type, "array") ? readDeclarationWord(file, RV_AREA_C) : "";
    char text[3 * 4096];
    snprintf(text, sizeof text, "%s %s %s", category, type, element);
    if (!RvNodeDeclare(node, name, text))
        RvMsgWarning("failed to add user-parameter %s of type %s to node %s", name, text,
                     RvNodeGetName(node));
}

// ---- Statements ----

void readOpeningBrace(RtRVSFile* file)
{
    char* const token = tokenArea(file, RV_AREA_A);
    RvRVSReadToken(file, token);
    if (RvRVSTokenKind(token) != RV_TOKEN_OPEN)
        RvMsgError("wrong token");
}

// Required: nothing but a closing brace ends the block. One that is not closed before the end of
// the input is looked for without an end.
static void skipBlock(RtRVSFile* file)
{
    char* const token = tokenArea(file, RV_AREA_A);
    do
        RvRVSReadToken(file, token);
    while (RvRVSTokenKind(token) != RV_TOKEN_CLOSE);
}

static bool parseInclude(RtRVSFile* file, RtList* list)
{
    char* const name = tokenArea(file, RV_AREA_A);
    RvRVSReadWord(file, name);
    RvRVSUnquote(name); // Required: once more, for <name>; names of one or two letters are lost
    return loadNested(name, list) == 0;
}

static void reportMissingType(RtScene* scene, const char* type_name)
{
    if (scene && scene->isIgnored(type_name))
        return;
    RvMsgWarning("node \"%s\" is not installed", type_name);
    if (scene)
        addMissingType(scene, type_name);
}

static void loadPluginsOfOptions()
{
    const char* const folders = render_options ? render_options->shader_searchpath : nullptr;
    if (folders && *folders)
        RvLoadPlugins(folders);
}

static void parseBlock(RtRVSFile* file, RtNode* node)
{
    readOpeningBrace(file);
    while (RvRVSParseParameter(file, node, false)) {
    }
}

// Most nodes are given their name first; the library's choice is made for the others only, because
// it costs as much as the rest of a small node.
static void nameUnlessNamed(RtNode* node, const char* param)
{
    if (!node->registered_name && strcmp(param, "name") != 0)
        the_frame->scene->nameByDefault(node);
}

static void parseNodeStatement(RtRVSFile* file, const char* type_name, RtList* list)
{
    RtScene* const scene = the_frame ? the_frame->scene : nullptr;
    if (!RvNodeEntryLookUp(type_name)) {
        reportMissingType(scene, type_name);
        skipBlock(file);
        return;
    }
    const bool is_options = !strcmp(type_name, "options");
    RtNode* const node = scene ? scene->createUnnamedNode(type_name) : nullptr;
    if (!node) {
        skipBlock(file);
        return;
    }
    if (list)
        RvListAdd(list, node);
    parseBlock(file, node);
    if (is_options)
        loadPluginsOfOptions();
}

} // namespace rv

bool RvRVSParseStatement(RtRVSFile* file, RtList* list)
{
    char* const word = rv::tokenArea(file, rv::RV_AREA_NAME);
    if (RvRVSReadWord(file, word) == 0)
        return true;
    if (!strcmp(word, "include"))
        return rv::parseInclude(file, list);
    if (!strcmp(word, "override"))
        RvRVSParseOverride(file);
    else
        rv::parseNodeStatement(file, word, list);
    return true;
}

bool RvRVSParseParameter(RtRVSFile* file, RtNode* node, bool defer)
{
    if (!node)
        return false;
    char* const name = rv::tokenArea(file, rv::RV_AREA_NAME);
    RvRVSReadToken(file, name);
    rv::nameUnlessNamed(node, name);
    const int kind = RvRVSTokenKind(name);
    if (kind == rv::RV_TOKEN_END || kind == rv::RV_TOKEN_CLOSE)
        return false;
    const int type = rv::parameterType(node, name);
    if (type == RV_TYPE_NONE && !strcmp(name, "declare"))
        rv::parseDeclaration(file, node);
    else if (rv::isLinkable(type) && strcmp(name, "name") != 0 && !rv::isLiteralNext(file))
        rv::parseLink(file, node, name, type, defer);
    else
        rv::parseValue(file, node, name, type, defer);
    return true;
}

RtArray* RvRVSParseArray(RtRVSFile* file, const char* param, RtNode* node)
{
    if (!node)
        return nullptr;
    rv::ArrayReader reader = { file, param, node, 0, false };
    return rv::readArray(&reader);
}
