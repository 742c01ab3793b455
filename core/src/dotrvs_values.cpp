// dotrvs_values: the text of numbers, strings and arrays in scene files.
#include "dotrvs_values.h"

#include "array.h"
#include "maths.h"
#include "rv_node.h"
#include "rv_params.h"

#include <errno.h>

namespace rv {

// ---- Text ----

void SceneText::check(bool succeeded)
{
    if (!succeeded && !failed)
        failed = errno ? errno : EIO;
}

void SceneText::flush()
{
    const ptrdiff_t size = cursor - file->buffer;
    cursor = file->buffer;
    line_start -= size;
    if (failed || size == 0)
        return;
    errno = 0;
    check(file->gzip ? gzwrite(file->gzip, file->buffer, unsigned(size)) == size
                     : fwrite(file->buffer, 1, size_t(size), file->plain) == size_t(size));
}

bool SceneText::finish()
{
    flush();
    errno = 0;
    // The end of a compressed file is written here, because closing it would not tell of a failure.
    if (!failed)
        check(file->gzip ? gzflush(file->gzip, Z_SYNC_FLUSH) == Z_OK &&
                               gzflush(file->gzip, Z_FINISH) == Z_OK
                         : fflush(file->plain) == 0);
    return !failed;
}

void SceneText::append(const char* text, size_t size)
{
    while (size > 0) {
        if (cursor == end)
            flush();
        const size_t piece = std::min(size, size_t(end - cursor));
        memcpy(cursor, text, piece);
        cursor += piece;
        text += piece;
        size -= piece;
    }
}

// The line counter is the reader's, which messages show.
void SceneText::newline()
{
    write('\n');
    line_start = cursor - file->buffer;
    scene_file_line.store(scene_file_line.load(std::memory_order_relaxed) + 1,
                          std::memory_order_relaxed);
}

void SceneText::write(const char* text, size_t size)
{
    while (const void* const found = memchr(text, '\n', size)) {
        const size_t length = size_t(static_cast<const char*>(found) - text);
        append(text, length);
        newline();
        text += length + 1;
        size -= length + 1;
    }
    append(text, size);
}

// ---- Values: one writer for each type ----

namespace {

struct ByteWriter {
    using Value = uint8_t;
    void operator()(SceneText* out, uint8_t value) const
    {
        out->put(integerToText(out->room(), unsigned{ value }));
    }
};

template <class Integer> struct IntegerWriter {
    using Value = Integer;
    void operator()(SceneText* out, Integer value) const
    {
        out->put(integerToText(out->room(), value));
    }
};

struct BoolWriter {
    using Value = uint8_t; // any other byte than 0 is true
    void operator()(SceneText* out, uint8_t value) const { out->write(value ? "on" : "off"); }
};

// The components of a value, separated by blanks.
template <class Floats> struct FloatsWriter {
    using Value = Floats;
    void operator()(SceneText* out, const Floats& value) const
    {
        constexpr int count = sizeof(Floats) / sizeof(float);
        float f[count];
        memcpy(f, &value, sizeof f);
        char* text = floatToText(out->room(), f[0]);
        for (int i = 1; i < count; ++i) {
            *text = ' ';
            text = floatToText(text + 1, f[i]);
        }
        out->put(text);
    }
};

// Every row stands on a line of its own.
struct MatrixWriter {
    using Value = RtMatrix;
    void operator()(SceneText* out, const RtMatrix& value) const
    {
        for (const auto& row : value.m) {
            out->newline();
            out->write("  ", 2);
            FloatsWriter<RtRGBA>()(out, { row[0], row[1], row[2], row[3] });
        }
    }
};

struct StringWriter {
    using Value = const char*;
    void operator()(SceneText* out, const char* text) const;
};

struct PointerWriter {
    using Value = void*;
    void operator()(SceneText* out, const void* value) const
    {
        char text[32];
        out->write(text, size_t(snprintf(text, sizeof text, "%p", value)));
    }
};

struct NodeWriter {
    using Value = RtNode*;
    void operator()(SceneText* out, const RtNode* node) const
    {
        const char* const name = RvNodeGetName(node);
        out->write(name ? name : "NULL");
    }
};

} // namespace

// Required: quotes alone are escaped. A text longer than the reader accepts is cut.
void StringWriter::operator()(SceneText* out, const char* text) const
{
    if (!text) {
        out->write("NULL", 4);
        return;
    }
    size_t room = scene_token_size - 4; // of the longest token, without its quotes
    out->write('"');
    for (;; ++text) {
        const size_t piece = strcspn(text, "\"");
        const size_t escaped = text[piece] ? 2 : 0;
        if (piece + escaped > room) {
            RvMsgError("string longer than %d characters", int{ scene_token_size });
            out->write(text, std::min(piece, room));
            break;
        }
        out->write(text, piece);
        if (!escaped)
            break;
        out->write("\\\"", escaped);
        text += piece;
        room -= piece + escaped;
    }
    out->write('"');
}

// Calls visit() with the writer of a type. False for a type without one.
template <class Visit> static bool visitWriter(int type, Visit visit)
{
    switch (type) {
    case RV_TYPE_BYTE: visit(ByteWriter()); return true;
    case RV_TYPE_INT: visit(IntegerWriter<int>()); return true;
    case RV_TYPE_UINT: visit(IntegerWriter<unsigned>()); return true;
    case RV_TYPE_BOOLEAN: visit(BoolWriter()); return true;
    case RV_TYPE_FLOAT: visit(FloatsWriter<float>()); return true;
    case RV_TYPE_RGB:
    case RV_TYPE_VECTOR:
    case RV_TYPE_POINT: visit(FloatsWriter<RtVector>()); return true;
    case RV_TYPE_RGBA: visit(FloatsWriter<RtRGBA>()); return true;
    case RV_TYPE_POINT2: visit(FloatsWriter<RtPoint2>()); return true;
    case RV_TYPE_STRING: visit(StringWriter()); return true;
    case RV_TYPE_POINTER: visit(PointerWriter()); return true;
    case RV_TYPE_NODE: visit(NodeWriter()); return true;
    case RV_TYPE_MATRIX: visit(MatrixWriter()); return true;
    default: return false;
    }
}

void writeValue(SceneText* out, int type, const void* value, const char* const* enum_names)
{
    if (type == RV_TYPE_ENUM) {
        int index;
        memcpy(&index, value, sizeof index);
        StringWriter()(out, RvEnumGetString(enum_names, index));
        return;
    }
    visitWriter(type, [&](auto writer) {
        typename decltype(writer)::Value v;
        memcpy(static_cast<void*>(&v), value, sizeof v);
        writer(out, v);
    });
}

// ---- Arrays ----

namespace {

// What single floats of arrays have otherwise than those of parameters.
struct FloatElementWriter {
    using Value = float;
    const RtNode* node;
    void operator()(SceneText* out, float value) const
    {
        if (!isfinite(value)) {
            RvMsgWarningMasked(RV_LOG_NAN, "%s: array contains bad float (%f)", RvNodeGetName(node),
                               double{ value });
            value = 0;
        }
        out->put(floatOrIntegerToText(out->room(), value));
    }
};

} // namespace

static void continueOnNewLine(SceneText* out)
{
    out->newline();
    out->write("  ", 2);
}

static void writeArrayHeader(SceneText* out, unsigned elements, unsigned keys, const char* type)
{
    for (const unsigned count : { elements, keys }) {
        out->put(integerToText(out->room(), count));
        out->write(' ');
    }
    out->write(type);
    out->write(' ');
}

template <class Writer>
static void writeElements(SceneText* out, const RtArray* array, Writer writer)
{
    using Value = typename Writer::Value;
    constexpr ptrdiff_t full_line = 79;
    const bool one_per_line = array->type == RV_TYPE_STRING;
    const char* at = static_cast<const char*>(array->data);
    for (unsigned i = totalElements(array); i > 0; --i, at += sizeof(Value)) {
        if (one_per_line || out->column() > full_line)
            continueOnNewLine(out);
        Value value;
        memcpy(static_cast<void*>(&value), at, sizeof value);
        writer(out, value);
        out->write(' ');
    }
}

static void writeNestedArrays(SceneText* out, const RtNode* node, const RtArray* array)
{
    for (unsigned i = 0; i < totalElements(array); ++i) {
        continueOnNewLine(out);
        writeArray(out, node, elementsOf<RtArray*>(array)[i]);
    }
}

void writeArray(SceneText* out, const RtNode* node, const RtArray* array)
{
    const char* const type = array ? silentTypeName(array->type) : nullptr;
    if (!array) {
        writeArrayHeader(out, 0, 0, silentTypeName(RV_TYPE_NONE));
        return;
    }
    const bool is_writable = type && array->type != RV_TYPE_NONE;
    if (array->nelements && array->nkeys && !(array->data && is_writable)) {
        const char* const name = type ? type : silentTypeName(RV_TYPE_NONE);
        RvMsgWarning("%s - bad array of type %s", RvNodeGetName(node), name);
        writeArrayHeader(out, 0, 0, name);
        return;
    }
    const unsigned total = totalElements(array);
    constexpr unsigned max_beside_name = 8; // more begin on a line of their own
    if (total != 1)
        writeArrayHeader(out, array->nelements, array->nkeys, type ? type : "UNDEFINED");
    if (array->type == RV_TYPE_ARRAY) {
        writeNestedArrays(out, node, array);
        return;
    }
    if (total > max_beside_name)
        continueOnNewLine(out);
    if (array->type == RV_TYPE_FLOAT)
        writeElements(out, array, FloatElementWriter{ node });
    else
        visitWriter(array->type, [&](auto writer) { writeElements(out, array, writer); });
}

} // namespace rv
