// metadata: typed annotations of node types and parameters, and the files that hold them
// (rv_metadata.h).
#include "metadata.h"

#include "frame.h"
#include "nodeentry.h"
#include "rv_msg.h"
#include "strpool.h"
#include "text.h"

#include <new>
#include <stdio.h>
#include <stdlib.h>

static const char* const module_path = "core\\src\\metadata";

namespace rv {

bool MetaDataKey::operator<(const MetaDataKey& other) const
{
    if (const int order = strcmp(param, other.param))
        return order < 0;
    if (const int order = strcmp(name, other.name))
        return order < 0;
    return type < other.type;
}

RtMetaDataStore* metaDataCreate()
{
    void* memory = RvMalloc_func(sizeof(RtMetaDataStore), module_path, __LINE__, "metaDataCreate");
    return memory ? new (memory) RtMetaDataStore : nullptr;
}

static void releaseEntry(RtMetaDataEntry& entry)
{
    releaseString(entry.param);
    releaseString(entry.name);
    if (entry.type == RV_TYPE_STRING)
        releaseString(entry.value.STR);
}

void metaDataDestroy(RtMetaDataStore* store)
{
    if (!store)
        return;
    for (auto& [key, entry] : store->entries)
        releaseEntry(entry);
    store->~RtMetaDataStore();
    RvFree_func(store);
}

static const char* ownerName(const char* param) { return param ? param : ""; }

const RtMetaDataEntry* metaDataFind(const RtMetaDataStore* store, const char* param,
                                    const char* name, int type)
{
    if (!store || !name)
        return nullptr;
    const auto found = store->entries.find({ ownerName(param), name, static_cast<uint8_t>(type) });
    return found == store->entries.end() ? nullptr : &found->second;
}

bool metaDataBool(const RtNodeEntry* entry, const char* param, const char* name, bool otherwise)
{
    const RtMetaDataEntry* found = metaDataFind(entry->metadata, param, name, RV_TYPE_BOOLEAN);
    return found ? found->value.BOOL : otherwise;
}

int metaDataInt(const RtMetaDataStore* store, const char* name, int otherwise)
{
    const RtMetaDataEntry* found = metaDataFind(store, nullptr, name, RV_TYPE_INT);
    return found ? found->value.INT : otherwise;
}

// A new key holds references to its strings; a string value arrives interned and is taken.
static bool insertEntry(RtMetaDataStore* store, RtMetaDataEntry entry)
{
    entry.param = internString(entry.param);
    entry.name = internString(entry.name);
    if (entry.param && entry.name) {
        try {
            store->entries.insert({ { entry.param, entry.name, entry.type }, entry });
            return true;
        } catch (const std::bad_alloc&) { // reported by the allocator
        }
    }
    releaseString(entry.param);
    releaseString(entry.name);
    return false;
}

static void setEntry(RtMetaDataStore* store, const char* param, const char* name, int type,
                     RtParamValue value)
{
    if (!store || !name)
        return;
    if (type == RV_TYPE_STRING) {
        value.STR = internString(value.STR ? value.STR : "");
        if (!value.STR)
            return;
    }
    const auto found = store->entries.find({ ownerName(param), name, static_cast<uint8_t>(type) });
    if (found != store->entries.end()) {
        RtParamValue& old = found->second.value;
        if (type == RV_TYPE_STRING)
            releaseString(old.STR);
        old = value;
        return;
    }
    if (!insertEntry(store, { name, static_cast<uint8_t>(type), value, ownerName(param) }) &&
        type == RV_TYPE_STRING)
        releaseString(value.STR);
}

} // namespace rv

// ---- Setters and getters, one pair per type ----

#define RV_METADATA_TYPES(X) /* suffix, C type of the value, member, type code */                  \
    X(Bool, bool, BOOL, RV_TYPE_BOOLEAN)                                                           \
    X(Int, int, INT, RV_TYPE_INT)                                                                  \
    X(Flt, float, FLT, RV_TYPE_FLOAT)                                                              \
    X(Pnt, RtPoint, PNT, RV_TYPE_POINT)                                                            \
    X(Vec, RtVector, VEC, RV_TYPE_VECTOR)                                                          \
    X(Pnt2, RtPoint2, PNT2, RV_TYPE_POINT2)                                                        \
    X(RGB, RtRGB, RGB, RV_TYPE_RGB)                                                                \
    X(Str, const char*, STR, RV_TYPE_STRING)

#define RV_DEFINE_METADATA(Suffix, Type, member, code)                                             \
    void RvMetaDataSet##Suffix(RtMetaDataStore* store, const char* param, const char* name,        \
                               Type value)                                                         \
    {                                                                                              \
        RtParamValue v = {};                                                                       \
        v.member = value;                                                                          \
        rv::setEntry(store, param, name, code, v);                                                 \
    }                                                                                              \
    bool RvMetaDataGet##Suffix(const RtNodeEntry* entry, const char* param, const char* name,      \
                               Type* out)                                                          \
    {                                                                                              \
        const RtMetaDataEntry* found =                                                             \
            entry && out ? rv::metaDataFind(entry->metadata, param, name, code) : nullptr;         \
        if (found)                                                                                 \
            *out = found->value.member;                                                            \
        return found != nullptr;                                                                   \
    }

RV_METADATA_TYPES(RV_DEFINE_METADATA)

// ---- Iteration ----

// The annotations of one parameter are neighbours in the map.
struct RtMetaDataIterator {
    rv::MetaDataMap::const_iterator current;
    rv::MetaDataMap::const_iterator end;
};

RtMetaDataIterator* RvNodeEntryGetMetaDataIterator(const RtNodeEntry* entry, const char* param)
{
    if (!entry || !entry->metadata)
        return nullptr;
    void* memory = RvMalloc_func(sizeof(RtMetaDataIterator), module_path, __LINE__,
                                 "RvNodeEntryGetMetaDataIterator");
    if (!memory)
        return nullptr;
    const rv::MetaDataMap& map = entry->metadata->entries;
    const char* owner = rv::ownerName(param);
    const auto begin = map.lower_bound({ owner, "", 0 });
    auto end = begin;
    while (end != map.end() && !strcmp(end->first.param, owner))
        ++end;
    return new (memory) RtMetaDataIterator{ begin, end };
}

const RtMetaDataEntry* RvMetaDataIteratorGetNext(RtMetaDataIterator* it)
{
    return RvMetaDataIteratorFinished(it) ? nullptr : &(it->current++)->second;
}

bool RvMetaDataIteratorFinished(const RtMetaDataIterator* it)
{
    return !it || it->current == it->end;
}

void RvMetaDataIteratorDestroy(RtMetaDataIterator* it) { RvFree_func(it); }

// ---- Files ----

namespace rv {

// State of reading one file. Texts handed to the log are cut to the line's length by construction.
struct MetaDataReader {
    static constexpr size_t line_size = 512; // 511 characters count, the rest of a line is cut
    static constexpr size_t node_name_size = 32 + 1;
    static constexpr size_t attr_name_size = 255 + 1;

    const char* filename;
    FILE* file;
    unsigned line_number;
    char line[line_size];
    const char* cursor;
    RtNodeEntry* node;
    char attr[attr_name_size]; // "" while no attribute is selected
};

static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

static bool fail(const MetaDataReader& reader, const char* what)
{
    RvMsgError("[METADATA] Error parsing metadata file (%s:%u). %s", reader.filename,
               reader.line_number, what);
    return false;
}

static bool fail(const MetaDataReader& reader, const char* what, const char* text)
{
    RvMsgError("[METADATA] Error parsing metadata file (%s:%u). %s (%s)", reader.filename,
               reader.line_number, what, text);
    return false;
}

static bool readLine(MetaDataReader* reader)
{
    size_t length = 0;
    int c = getc(reader->file);
    if (c == EOF)
        return false;
    for (; c != EOF && c != '\n'; c = getc(reader->file))
        if (length < MetaDataReader::line_size - 1)
            reader->line[length++] = static_cast<char>(c);
    reader->line[length] = '\0';
    reader->cursor = reader->line;
    ++reader->line_number;
    return true;
}

static void skipBlanks(MetaDataReader* reader)
{
    while (isBlank(*reader->cursor))
        ++reader->cursor;
}

// The next run of characters other than blanks, "" at the end of the line.
static void readToken(MetaDataReader* reader, char token[MetaDataReader::line_size])
{
    skipBlanks(reader);
    size_t length = 0;
    while (*reader->cursor && !isBlank(*reader->cursor))
        token[length++] = *reader->cursor++;
    token[length] = '\0';
}

// The name of a section up to its closing bracket, at most size - 1 characters. False when the
// bracket does not follow at once; name then holds what was read.
static bool readSectionName(MetaDataReader* reader, char* name, size_t size)
{
    skipBlanks(reader);
    size_t length = 0;
    while (*reader->cursor && !isBlank(*reader->cursor) && *reader->cursor != ']' &&
           length + 1 < size)
        name[length++] = *reader->cursor++;
    name[length] = '\0';
    if (*reader->cursor != ']')
        return false;
    ++reader->cursor;
    return true;
}

static bool readSection(MetaDataReader* reader, const char* keyword)
{
    if (!strcmp(keyword, "node")) {
        char name[MetaDataReader::node_name_size];
        if (!readSectionName(reader, name, sizeof name))
            return fail(*reader, "Wrong format for node name", name);
        RtNodeEntry* const entry = findNodeEntry(name).entry;
        if (!entry)
            return fail(*reader, "Node entry does not exist", name);
        reader->node = entry;
        reader->attr[0] = '\0';
        return true;
    }
    if (!strcmp(keyword, "attr")) {
        char name[MetaDataReader::attr_name_size];
        if (!readSectionName(reader, name, sizeof name))
            return fail(*reader, "Wrong format for attribute name", name);
        memcpy(reader->attr, name, sizeof name);
        return true;
    }
    return fail(*reader, "Unknown key type", keyword);
}

static bool readBool(MetaDataReader* reader, RtParamValue* value)
{
    char token[MetaDataReader::line_size];
    readToken(reader, token);
    for (const char* word : { "true", "on", "yes", "1" })
        if (equalIgnoringCase(token, word))
            return value->BOOL = true;
    for (const char* word : { "false", "off", "no", "0" })
        if (equalIgnoringCase(token, word)) {
            value->BOOL = false;
            return true;
        }
    return fail(*reader, "Not a valid boolean value", token);
}

static bool readNumberToken(MetaDataReader* reader, char token[MetaDataReader::line_size])
{
    readToken(reader, token);
    return *token || fail(*reader, "Missing number");
}

static bool readInt(MetaDataReader* reader, RtParamValue* value)
{
    char token[MetaDataReader::line_size];
    if (!readNumberToken(reader, token))
        return false;
    const bool is_hex = strlen(token) >= 3 && token[0] == '0' && lowerCase(token[1]) == 'x';
    value->INT = static_cast<int>(strtol(token, nullptr, is_hex ? 16 : 10));
    return true;
}

// The components of FLOAT, POINT, VECTOR, RGB and POINT2 are consecutive floats of the value.
template <int count> static bool readFloats(MetaDataReader* reader, RtParamValue* value)
{
    float components[count];
    for (float& component : components) {
        char token[MetaDataReader::line_size];
        if (!readNumberToken(reader, token))
            return false;
        component = static_cast<float>(textToDouble(token));
    }
    memcpy(static_cast<void*>(value), components, sizeof components);
    return true;
}

// The rest of the line between its first character and its last double quote, without the quotes.
// The text stays in the reader's line.
static bool readString(MetaDataReader* reader, RtParamValue* value)
{
    skipBlanks(reader);
    if (!*reader->cursor)
        return fail(*reader, "Missing string value");
    char* const first = reader->line + (reader->cursor - reader->line);
    char* const last = strrchr(first, '"');
    if (*first != '"' || last == first)
        return fail(*reader, "String value should be quoted");
    *last = '\0';
    value->STR = first + 1;
    return true;
}

static const struct {
    const char* name;
    int type;
    bool (*read)(MetaDataReader*, RtParamValue*);
} value_readers[] = {
    { "BOOL", RV_TYPE_BOOLEAN, readBool },       { "INT", RV_TYPE_INT, readInt },
    { "FLOAT", RV_TYPE_FLOAT, readFloats<1> },   { "POINT", RV_TYPE_POINT, readFloats<3> },
    { "VECTOR", RV_TYPE_VECTOR, readFloats<3> }, { "POINT2", RV_TYPE_POINT2, readFloats<2> },
    { "RGB", RV_TYPE_RGB, readFloats<3> },       { "STRING", RV_TYPE_STRING, readString },
};

static bool readEntry(MetaDataReader* reader)
{
    char key[MetaDataReader::line_size];
    char type[MetaDataReader::line_size];
    readToken(reader, key);
    if (!reader->node)
        return fail(*reader, "Found metadata outside node section", key);
    readToken(reader, type);
    for (const auto& row : value_readers) {
        if (strcmp(type, row.name) != 0)
            continue;
        RtParamValue value = {};
        if (!row.read(reader, &value))
            return false;
        setEntry(reader->node->metadata, *reader->attr ? reader->attr : nullptr, key, row.type,
                 value);
        return true;
    }
    return fail(*reader, "Unknown metadata type", type);
}

// Section headers come first on a line; an entry may follow them.
static bool parseLine(MetaDataReader* reader)
{
    skipBlanks(reader);
    while (*reader->cursor == '[') {
        ++reader->cursor;
        char keyword[MetaDataReader::line_size] = "";
        if (!isBlank(*reader->cursor))
            readToken(reader, keyword);
        if (!readSection(reader, keyword))
            return false;
        skipBlanks(reader);
    }
    if (!*reader->cursor || *reader->cursor == '#')
        return true;
    return readEntry(reader);
}

// Null when the file cannot be opened, and for a directory, which opens but cannot be read.
static FILE* openForReading(const char* filename)
{
    FILE* const file = fopen(filename, "r");
    if (!file)
        return nullptr;
    const int first = getc(file);
    if (first == EOF && ferror(file)) {
        fclose(file);
        return nullptr;
    }
    ungetc(first, file);
    return file;
}

} // namespace rv

bool RvMetaDataLoadFile(const char* filename)
{
    FILE* const file = rv::the_frame && filename ? rv::openForReading(filename) : nullptr;
    if (!file)
        return false;
    RvMsgInfo("[METADATA] Loading metadata file: %s", filename);
    rv::MetaDataReader reader = {};
    reader.filename = filename;
    reader.file = file;
    bool ok = true;
    while (ok && rv::readLine(&reader))
        ok = rv::parseLine(&reader);
    fclose(file);
    return ok;
}
