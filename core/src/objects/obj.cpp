// obj: reads Wavefront OBJ files for procedurals: positions, normals, texture coordinates, faces,
// groups, smoothing and the names of shaders. Everything else in a file is passed over.
//
// Indices count over the whole file; each group gets them relative to its own first element.
// Nothing is checked here: a mesh repairs what points beyond its elements.
#include "objects/obj.h"

#include "array.h"
#include "duration.h"
#include "frame.h"
#include "msg.h"
#include "rv_render.h"
#include "strpool.h"
#include "system/clock.h"

#include <algorithm>
#include <charconv>
#include <locale.h>
#include <new>
#include <stdio.h>
#include <string.h>
#include <zlib.h>

static const char* const module_path = "core\\src\\objects\\obj";

namespace rv {

static constexpr size_t max_name_length = 1024;

// ---- Numbers ----

static bool isBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
static bool isDigit(char c) { return c >= '0' && c <= '9'; }

static const char* skipBlanks(const char* text)
{
    while (isBlank(*text))
        ++text;
    return text;
}

static const char* skipDigits(const char* text)
{
    while (isDigit(*text))
        ++text;
    return text;
}

// Whatever is not a plain number is left to the C library, without the locale of the host.
template <class T> static const char* scanOdd(const char* text, const char* format, T* number)
{
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    const locale_t before = c_locale ? uselocale(c_locale) : nullptr;
    int length = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const bool is_number = sscanf(text, format, number, &length) == 1;
#pragma GCC diagnostic pop
    if (before)
        uselocale(before);
    return is_number ? text + length : nullptr;
}

// The end of digits with a point among them or not, and an exponent or not; null for any other
// notation.
static const char* endOfDecimal(const char* text)
{
    const char* const start = text;
    text = skipDigits(text);
    size_t digits = size_t(text - start);
    if (*text == '.') {
        const char* const fraction = ++text;
        text = skipDigits(text);
        digits += size_t(text - fraction);
    }
    if (digits == 0 || *text == 'x' || *text == 'X')
        return nullptr;
    if (*text != 'e' && *text != 'E')
        return text;
    ++text;
    text += *text == '+' || *text == '-';
    return isDigit(*text) ? skipDigits(text) : nullptr;
}

// Reads a number after blanks and returns what follows it; null when there is none.
static const char* scanFloat(const char* text, float* number)
{
    text = skipBlanks(text);
    const bool has_sign = *text == '+' || *text == '-';
    if (const char* const end = endOfDecimal(text + has_sign)) {
        const auto result = std::from_chars(text + (*text == '+'), end, *number);
        if (result.ec == std::errc() && result.ptr == end)
            return end;
    }
    return scanOdd(text, "%f%n", number);
}

static const char* scanUnsigned(const char* text, uint32_t* number)
{
    static constexpr int most_digits = 19; // that 64 bits always hold
    text = skipBlanks(text);
    const bool has_sign = *text == '+' || *text == '-';
    const char* const digits = text + has_sign;
    const char* const end = skipDigits(digits);
    if (end == digits)
        return nullptr;
    if (end - digits > most_digits)
        return scanOdd(text, "%u%n", number);
    uint64_t value = 0;
    for (const char* c = digits; c != end; ++c)
        value = value * 10 + uint64_t(*c - '0');
    *number = static_cast<uint32_t>(*text == '-' ? 0 - value : value);
    return end;
}

int scanFloats(const char* text, float* numbers, int count)
{
    int read = 0;
    while (read < count && (text = scanFloat(text, &numbers[read])))
        ++read;
    return read;
}

int scanCorner(const char* text, uint32_t* numbers)
{
    int read = 0;
    while (read < 3 && (text = scanUnsigned(text, &numbers[read]))) {
        ++read;
        if (*text++ != '/')
            break;
    }
    return read;
}

// ---- Lines ----

// Required: longer lines are read in pieces of this length, each of which counts as a line.
static constexpr size_t max_piece = 299;

// An open file and the part of it that is being read.
struct ObjInput {
    static constexpr unsigned size = 262144;

    gzFile file;
    char* begin; // of what has not been handed out yet
    char* end;
    bool is_at_end; // of the file
    char covered;   // by the zero that ends the last piece
    char buffer[size + 1];

    bool open(const char* name);
    void refill();
    // The next piece, zero-terminated; null at the end. Valid until the next call.
    char* next();
    void close(const char* name);
};

bool ObjInput::open(const char* name)
{
    file = gzopen(name, "rb");
    begin = end = buffer;
    is_at_end = false;
    covered = '\0';
    *buffer = '\0';
    return file;
}

void ObjInput::refill()
{
    const size_t kept = size_t(end - begin);
    memmove(buffer, begin, kept);
    begin = buffer;
    end = buffer + kept;
    while (!is_at_end && size_t(end - begin) < max_piece) {
        const int read = gzread(file, end, static_cast<unsigned>(buffer + size - end));
        is_at_end = read <= 0;
        end += read > 0 ? read : 0;
    }
}

char* ObjInput::next()
{
    *begin = covered;
    if (size_t(end - begin) < max_piece && !is_at_end)
        refill();
    if (begin == end)
        return nullptr;
    char* const piece = begin;
    const size_t most = std::min(size_t(end - begin), max_piece);
    const char* const newline = static_cast<const char*>(memchr(piece, '\n', most));
    begin += newline ? size_t(newline - piece) + 1 : most;
    covered = *begin;
    *begin = '\0';
    return piece;
}

void ObjInput::close(const char* name)
{
    int code;
    const char* const reason = gzerror(file, &code);
    if (code != Z_OK && code != Z_STREAM_END)
        RvMsgWarning("[obj] %s: the file is read up to a fault: %s", name, reason);
    gzclose(file);
}

// Cuts the next token off a text; null when none is left. What it cut from comes to stand after
// the character that ended the token.
static char* nextToken(char** text)
{
    char* token = *text;
    while (*token == ' ' || *token == '\t' || *token == '\r' || *token == '\n')
        ++token;
    char* end = token;
    while (*end && *end != ' ' && *end != '\t' && *end != '\r' && *end != '\n')
        ++end;
    *text = *end ? end + 1 : end;
    *end = '\0';
    return *token ? token : nullptr;
}

} // namespace rv

// ---- Statements ----

RtObjReader::~RtObjReader() { clear(); }

void RtObjReader::readVertex(const char* text)
{
    RtPoint point = {};
    rv::scanFloats(text, &point.x, 3);
    vertices.push_back(point);
    ++vertex.count;
}

void RtObjReader::readNormal(const char* text)
{
    RtVector vector = {};
    rv::scanFloats(text, &vector.x, 3);
    normals.push_back(vector);
    ++normal.count;
}

void RtObjReader::readUV(const char* text)
{
    float uv[2] = {};
    rv::scanFloats(text, uv, 2);
    uvs.insert(uvs.end(), uv, uv + 2);
    ++texture.count;
}

// Required: the second number of a pair makes an index of a normal, but its value is the third
// number of the last corner that had one. The subtractions may wrap.
void RtObjReader::readCorner(const char* token)
{
    const int read = rv::scanCorner(token, corner);
    vidxs.push_back(corner[0] - vertex.base);
    if (read >= 2)
        nidxs.push_back(corner[2] - normal.base);
    if (read == 3)
        uvidxs.push_back(corner[1] - texture.base);
}

void RtObjReader::readFace(char* text)
{
    has_faces = true;
    uint32_t sides = 0;
    while (const char* const token = rv::nextToken(&text)) {
        readCorner(token);
        ++sides;
    }
    nsides.push_back(sides);
}

void RtObjReader::Base::endGroup()
{
    base += count;
    count = 0;
}

void RtObjReader::beginGroup(char* text)
{
    if (has_faces) {
        buildNode();
        for (Base* base : { &vertex, &normal, &texture })
            base->endGroup();
    }
    rv::releaseString(name);
    const char* const token = rv::nextToken(&text);
    name = token ? rv::internString(token) : nullptr;
}

void RtObjReader::readLine(char* line)
{
    const char* const statement = rv::nextToken(&line);
    if (!statement)
        return;
    if (!strcmp(statement, "v"))
        readVertex(line);
    else if (!strcmp(statement, "f"))
        readFace(line);
    else if (!strcmp(statement, "vn"))
        readNormal(line);
    else if (!strcmp(statement, "vt"))
        readUV(line);
    else if (!strcmp(statement, "g"))
        beginGroup(line);
    else if (!strcmp(statement, "s")) {
        const char* const token = rv::nextToken(&line);
        smoothing = token && !strcmp(token, "1");
    } else if (!strcmp(statement, "usemtl"))
        shader = RvNodeLookUpByName(rv::nextToken(&line));
}

// ---- Groups ----

// Gives the node an array of the elements, and frees it when it is refused for bad numbers.
static void setArray(RtNode* node, const char* param, int type, size_t count, const void* elements)
{
    RtArray* const array = RvArrayConvert(int(count), 1, type, const_cast<void*>(elements), true);
    if (!array)
        return;
    RvNodeSetArray(node, param, array);
    if (RvNodeGetArray(node, param) != array)
        RvArrayDestroy(array);
}

// Makes the node of the group and starts with empty lists.
void RtObjReader::buildNode()
{
    ++node_count;
    if (RtNode* const node = RvNode("polymesh")) {
        if (name)
            RvNodeSetStr(node, "name", name);
        setArray(node, "vlist", RV_TYPE_POINT, vertices.size(), vertices.data());
        setArray(node, "nlist", RV_TYPE_VECTOR, normals.size(), normals.data());
        setArray(node, "uvlist", RV_TYPE_POINT2, uvs.size() / 2, uvs.data());
        setArray(node, "vidxs", RV_TYPE_UINT, vidxs.size(), vidxs.data());
        setArray(node, "nidxs", RV_TYPE_UINT, nidxs.size(), nidxs.data());
        setArray(node, "uvidxs", RV_TYPE_UINT, uvidxs.size(), uvidxs.data());
        setArray(node, "nsides", RV_TYPE_UINT, nsides.size(), nsides.data());
        RvNodeSetBool(node, "smoothing", smoothing);
        if (shader)
            RvNodeSetPtr(node, "shader", shader);
        RvListAdd(nodes, node);
    }
    clearGroup();
}

void RtObjReader::clearGroup()
{
    vertices.clear();
    normals.clear();
    uvs.clear();
    for (Vector<uint32_t>* list : { &vidxs, &nidxs, &uvidxs, &nsides })
        list->clear();
    has_faces = false;
}

// ---- Files ----

void RtObjReader::clear()
{
    clearGroup();
    rv::releaseString(name);
    name = nullptr;
    smoothing = false;
    shader = nullptr;
    vertex = normal = texture = {};
    std::fill(std::begin(corner), std::end(corner), 0);
}

void RtObjReader::readLines(rv::ObjInput* input)
{
    clear(); // a file that was read in part leaves something
    node_count = line_count = 0;
    while (char* const line = input->next()) {
        ++line_count;
        readLine(line);
    }
    buildNode();
    clear();
}

namespace rv {

static bool isUsableName(const char* name)
{
    if (!name || !*name) {
        RvMsgError("can't open file, no filename supplied");
        return false;
    }
    if (const size_t length = strlen(name); length >= max_name_length) {
        RvMsgError("filename too long (size is %d, max is %d): %s", int(length),
                   int(max_name_length), name);
        return false;
    }
    return true;
}

static void reportSummary(const char* name, int nodes, int lines, uint32_t elapsed_ms)
{
    const char* const duration = RvDurationString(elapsed_ms);
    if (RvRendering())
        RvMsgInfoMasked(RV_LOG_LOADING, "[obj] %s: parsed %d nodes in %d lines in %s", name, nodes,
                        lines, duration);
    else
        RvMsgInfo("[obj] parsed %d nodes in %d lines in %s", nodes, lines, duration);
}

} // namespace rv

int RtObjReader::read(const char* file_name, RtList* list)
{
    if (!rv::the_frame || !rv::isUsableName(file_name))
        return 0;
    const uint32_t start = rv::wallMilliseconds();
    auto* const input = static_cast<rv::ObjInput*>(
        rv::allocate(sizeof(rv::ObjInput), module_path, __LINE__, "RtObjReader"));
    if (!input)
        return 0;
    bool is_open = input->open(file_name);
    bool is_read = false;
    if (!is_open)
        RvMsgError("Could not open .obj file %s", file_name);
    try {
        nodes = list;
        if (is_open)
            readLines(input);
        is_read = is_open;
    } catch (const std::bad_alloc&) { // reported by the allocator
    }
    if (is_open)
        input->close(file_name);
    RvFree_func(input);
    if (is_read)
        rv::reportSummary(file_name, node_count, line_count, rv::wallMilliseconds() - start);
    return is_read;
}
