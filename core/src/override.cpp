// override: the "override" node type, parameter changes kept for a node that does not exist yet;
// the blocks of scene files that ask for them, and their application.
#include "override.h"

#include "array.h"
#include "dotrvs_parse.h"
#include "dotrvs_references.h"
#include "dotrvs_values.h"
#include "frame.h"
#include "msg.h"
#include "scene.h"
#include "strpool.h"
#include "system/critical_section.h"

#include <algorithm>
#include <limits.h>
#include <string.h>
#include <string_view>

static const char* const module_path = "core\\src\\override";

namespace rv {

// ---- The node type ----

struct Override {
    const char* node_name;
    RtArray* param_name;  // STRING
    RtArray* param_value; // ARRAY of BYTE: the text as written, a newline and a zero
    int param_count;      // entries in use of both arrays
    const char* name;
};

static void parameters(RtList* params, RtMetaDataStore* metadata)
{
    declareLayout<Override>(metadata);
    RvNodeParamSTR(params, RV_FIELD(Override, node_name), "");
    RvNodeParamARRAY(params, RV_FIELD(Override, param_name), RvArray(0, 1, RV_TYPE_STRING));
    RvNodeParamARRAY(params, RV_FIELD(Override, param_value), RvArray(0, 1, RV_TYPE_ARRAY));
    RvNodeParamINT(params, RV_FIELD(Override, param_count), 0);
}

static const RtCommonMethods common = {
    .Parameters = parameters,
    .Initialize = do_nothing,
    .Update = do_nothing,
    .Finish = do_nothing,
};

const RtNodeMethods override_methods = { &common, nullptr };

// ---- Stored overrides. The lock of the table guards the nodes that it holds. ----

static constexpr unsigned first_length = 20;

static RtSimpleHash* overrideTable()
{
    return the_frame && the_frame->scene_files ? the_frame->scene_files->overrides : nullptr;
}

static const Override& contents(const RtNode* node)
{
    return *static_cast<const Override*>(node->params);
}

static unsigned elementCount(const RtArray* array) { return array ? totalElements(array) : 0; }

// Entries in use. The node is open to everybody, so its values are not taken for granted.
static unsigned entryCount(const Override& record)
{
    const unsigned stored =
        std::min(elementCount(record.param_name), elementCount(record.param_value));
    return record.param_count > 0 ? std::min(unsigned(record.param_count), stored) : 0;
}

static const char* entryName(const Override& record, unsigned i)
{
    const char* const name = elementsOf<const char*>(record.param_name)[i];
    return name ? name : "";
}

// The override node for a node of that name; null when the heap is exhausted.
static RtNode* overrideFor(const char* node_name)
{
    RtSimpleHash* const table = overrideTable();
    if (!table)
        return nullptr;
    const CritSecLock guard(&table->lock); // or two threads would make two nodes
    if (void* const present = simpleHash_lookup(table, node_name))
        return static_cast<RtNode*>(present);
    RtNode* const node = the_frame->scene->createNode("override");
    if (!node)
        return nullptr;
    RvNodeSetStr(node, "node_name", node_name);
    const bool is_ours = node->entry->methods == &common; // another type may have taken the name
    if (is_ours && simpleHash_insert(table, node_name, node))
        return node;
    the_frame->scene->removeNode(node);
    return nullptr;
}

static void makeArrays(RtNode* node)
{
    giveArray(node, "param_name", RvArrayAllocate(first_length, 1, RV_TYPE_STRING));
    giveArray(node, "param_value", RvArrayAllocate(first_length, 1, RV_TYPE_ARRAY));
}

// Replaces both arrays with copies twice as long.
static void doubleArrays(RtNode* node)
{
    const Override& record = contents(node);
    const unsigned count = elementCount(record.param_name);
    RtArray* const names = RvArrayAllocate(2 * count, 1, RV_TYPE_STRING);
    RtArray* const values = RvArrayAllocate(2 * count, 1, RV_TYPE_ARRAY);
    const unsigned kept = std::min(entryCount(record), elementCount(values) / 2);
    for (unsigned i = 0; i < std::min(kept, elementCount(names)); ++i) {
        RvArraySetStr(names, i, elementsOf<const char*>(record.param_name)[i]);
        const RtArray* const value = elementsOf<RtArray*>(record.param_value)[i];
        RvArraySetArray(values, i, value ? RvArrayCopy(value) : nullptr);
    }
    giveArray(node, "param_name", names);
    giveArray(node, "param_value", values);
}

// Position of a parameter among the first `count` entries, `count` when it is not there.
static unsigned findEntry(const Override& record, unsigned count, const char* param)
{
    unsigned i = 0;
    while (i < count && strcmp(entryName(record, i), param) != 0)
        ++i;
    return i;
}

// Takes over the value.
static void storeOverride(RtNode* node, const char* param, RtArray* value)
{
    const CritSecLock guard(&overrideTable()->lock);
    const Override& record = contents(node);
    if (record.param_count <= 0)
        makeArrays(node);
    const unsigned count = entryCount(record);
    const unsigned entry = findEntry(record, count, param);
    if (entry == count && count == elementCount(record.param_name))
        doubleArrays(node);
    if (entry >= std::min(elementCount(record.param_name), elementCount(record.param_value))) {
        RvArrayDestroy(value);
        return;
    }
    RtArray*& place = elementsOf<RtArray*>(record.param_value)[entry];
    RvArrayDestroy(place);
    place = value;
    RvArraySetStr(record.param_name, entry, param);
    if (entry == count)
        RvNodeSetInt(node, "param_count", int(count) + 1);
}

// ---- Override blocks ----

namespace {

// The text of a value as it is read. After an exhausted heap it is not complete, and grows no more.
struct ValueText {
    char* data = nullptr;
    uint64_t length = 0;
    uint64_t capacity = 0;
    bool is_complete = true;
};

enum class ValueEnd { line, block, input };

} // namespace

static void append(ValueText* text, char c)
{
    static constexpr uint64_t first_capacity = 1024;
    if (!text->is_complete)
        return;
    if (text->length == text->capacity) {
        const uint64_t capacity = std::max(first_capacity, 2 * text->capacity);
        void* const grown = capacity <= INT_MAX
                                ? RvRealloc_func(text->data, unsigned(capacity), module_path,
                                                 __LINE__, "RvRVSParseOverride")
                                : nullptr;
        text->is_complete = grown != nullptr;
        if (!grown)
            return;
        text->data = static_cast<char*>(grown);
        text->capacity = capacity;
    }
    text->data[text->length++] = c;
}

// The characters up to the end of the line, as they are.
static ValueEnd readValueText(RtRVSFile* file, ValueText* text)
{
    ValueEnd end = ValueEnd::line;
    for (;;) {
        const char c = readChar(file);
        if (c == '\n') {
            countLine();
            break;
        }
        if (c == '}' || c == end_marker) {
            end = c == '}' ? ValueEnd::block : ValueEnd::input;
            break;
        }
        append(text, c);
    }
    append(text, '\n');
    append(text, '\0');
    return end;
}

static bool reportEndOfInput()
{
    RvMsgError("unexpected end-of-file in override string");
    return false;
}

// Keeps the rest of the line for a node of that name. False at the end of the block.
static bool parseDelayed(RtRVSFile* file, const char* node_name)
{
    char* const param = tokenArea(file, RV_AREA_A);
    RvRVSReadToken(file, param);
    const int kind = RvRVSTokenKind(param);
    if (kind == RV_TOKEN_END)
        return reportEndOfInput();
    if (kind == RV_TOKEN_CLOSE)
        return false;
    ValueText text;
    const ValueEnd end = readValueText(file, &text);
    RtNode* const node = text.is_complete ? overrideFor(node_name) : nullptr;
    RtArray* const value =
        node ? adoptBlock(int(text.length), 1, RV_TYPE_BYTE, text.data) : nullptr;
    if (value)
        storeOverride(node, param, value);
    else
        RvFree_func(text.data);
    return end == ValueEnd::input ? reportEndOfInput() : end == ValueEnd::line;
}

// False at the end of the block.
static bool parseOverrideLine(RtRVSFile* file)
{
    char* const node_name = tokenArea(file, RV_AREA_NAME);
    RvRVSReadToken(file, node_name);
    const int kind = RvRVSTokenKind(node_name);
    if (kind == RV_TOKEN_END)
        return reportEndOfInput();
    if (kind == RV_TOKEN_CLOSE)
        return false;
    if (RtNode* const node = RvNodeLookUpByName(node_name))
        return RvRVSParseParameter(file, node, true);
    return parseDelayed(file, node_name);
}

// ---- Application ----

static size_t valueLength(const RtArray* value)
{
    const bool is_text = value && value->type == RV_TYPE_BYTE;
    return is_text ? strnlen(elementsOf<char>(value), totalElements(value)) : 0;
}

static size_t textSize(const Override& record, unsigned i)
{
    return strlen(entryName(record, i)) + 1 +
           valueLength(elementsOf<RtArray*>(record.param_value)[i]) + 1;
}

static char* writeText(const Override& record, unsigned i, char* out)
{
    const size_t name_length = strlen(entryName(record, i));
    memcpy(out, entryName(record, i), name_length);
    out += name_length;
    *out++ = ' ';
    const RtArray* const value = elementsOf<RtArray*>(record.param_value)[i];
    const size_t length = valueLength(value);
    if (length > 0)
        memcpy(out, value->data, length);
    out += length;
    *out++ = '\0';
    return out;
}

// "name value" of every entry, each ended by a zero; null when there are none.
static char* copyTexts(const RtNode* node, unsigned* count)
{
    const Override& record = contents(node);
    *count = entryCount(record);
    size_t size = 0;
    for (unsigned i = 0; i < *count; ++i)
        size += textSize(record, i);
    char* const texts = static_cast<char*>(
        *count ? allocate(size, module_path, __LINE__, "RvRVSApplyDelayedOverrides") : nullptr);
    char* out = texts;
    for (unsigned i = 0; texts && i < *count; ++i)
        out = writeText(record, i, out);
    return texts;
}

static void applyTexts(RtNode* node, const char* texts, unsigned count)
{
    RtRVSFile* const file = RvRVSCreateFile("???");
    if (!file)
        return;
    for (unsigned i = 0; i < count; ++i) {
        const size_t length = strlen(texts);
        readFromText(file, texts, length);
        scene_file_line = 0;
        skipBlanks(file);
        RvRVSParseParameter(file, node, false);
        scene_file_line = -1;
        texts += length + 1;
    }
    RvRVSDestroyFile(file);
}

// ---- Writing ----

bool keepsOverrides(const RtNode* node)
{
    RtSimpleHash* const table = overrideTable();
    if (!table || node->entry->methods != &common || !contents(node).node_name)
        return false;
    const CritSecLock guard(&table->lock);
    return simpleHash_lookup(table, contents(node).node_name) == node;
}

// A value ends where the reader would end it, whoever has stored it.
static void writeEntry(SceneText* out, const Override& record, unsigned i)
{
    const RtArray* const value = elementsOf<RtArray*>(record.param_value)[i];
    const size_t length = valueLength(value);
    const std::string_view text(length ? elementsOf<char>(value) : "", length);
    for (const char* word : { record.node_name, entryName(record, i) }) {
        out->write(' ');
        out->write(word);
    }
    out->write(' ');
    out->write(text.data(), std::min(text.find_first_of("\n}"), length));
    out->newline();
}

void writeOverrides(SceneText* out, const RtNode* node)
{
    const CritSecLock guard(&overrideTable()->lock);
    const Override& record = contents(node);
    out->write("override\n{\n");
    for (unsigned i = 0; i < entryCount(record); ++i)
        writeEntry(out, record, i);
    out->write("}\n\n");
}

} // namespace rv

void RvRVSParseOverride(RtRVSFile* file)
{
    rv::readOpeningBrace(file);
    while (rv::parseOverrideLine(file)) {
    }
}

void RvRVSApplyDelayedOverrides(RtNode* node)
{
    RtSimpleHash* const table = rv::overrideTable();
    if (!node || !table)
        return;
    unsigned count = 0;
    char* texts = nullptr;
    {
        const rv::CritSecLock guard(&table->lock);
        if (const void* const stored = simpleHash_lookup(table, RvNodeGetName(node)))
            texts = rv::copyTexts(static_cast<const RtNode*>(stored), &count);
    }
    if (!texts)
        return;
    rv::applyTexts(node, texts, count);
    RvFree_func(texts);
}
