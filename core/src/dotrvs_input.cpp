// dotrvs_input: opening and closing scene files, and what the reader takes from them: characters,
// tokens, words and runs of plain numbers.
#include "dotrvs_input.h"

#include "system/file_tools.h"
#include "system/memory.h"

#include <charconv>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <utility>

static const char* const module_path = "core\\src\\dotrvs";

// ---- The record ----

static char* allocateText(size_t size)
{
    return static_cast<char*>(rv::allocate(size, module_path, __LINE__, "RvRVSCreateFile"));
}

RtRVSFile* RvRVSCreateFile(const char* name)
{
    auto* const file = static_cast<RtRVSFile*>(
        RvMalloc_func(sizeof(RtRVSFile), module_path, __LINE__, "RvRVSCreateFile"));
    if (!file)
        return nullptr;
    *file = {};
    file->position = file->length = rv::scene_buffer_size;
    const size_t name_size = strlen(name) + 1;
    file->file_name = allocateText(name_size);
    file->buffer = allocateText(rv::scene_buffer_size + 1);
    file->pending = allocateText(rv::scene_pushback_size + 1);
    file->areas = allocateText(size_t(rv::scene_token_areas) * rv::scene_token_size);
    if (!file->file_name || !file->buffer || !file->pending || !file->areas) {
        RvMsgError("%s: can't allocate read buffer", name);
        RvRVSDestroyFile(file);
        return nullptr;
    }
    memcpy(file->file_name, name, name_size);
    file->buffer[rv::scene_buffer_size] = rv::end_marker;
    return file;
}

void RvRVSDestroyFile(RtRVSFile* file)
{
    if (!file)
        return;
    RvFree_func(file->file_name);
    RvFree_func(file->buffer);
    RvFree_func(file->pending);
    RvFree_func(file->areas);
    RvFree_func(file);
}

// ---- Opening and closing ----

namespace rv {

static bool isPipe(const RtRVSFile* file) { return file->file_name[0] == '|'; }

static bool openForReading(RtRVSFile* file)
{
    // Reading a folder would look like reading an empty file.
    if (isFolder(file->file_name)) {
        errno = EISDIR;
        return false;
    }
    file->gzip = gzopen(file->file_name, "rb");
    return file->gzip != nullptr;
}

static bool openForWriting(RtRVSFile* file, const char* mode)
{
    const char* const name = file->file_name;
    const char* const dot = strlen(name) < 1024 ? strrchr(name, '.') : nullptr;
    if (dot && !strcmp(dot, ".gz")) {
        char gzip_mode[16];
        snprintf(gzip_mode, sizeof gzip_mode, "%sb2", mode);
        file->gzip = gzopen(name, gzip_mode);
        file->is_compressed = true;
        return file->gzip != nullptr;
    }
    file->plain = fopen(name, "w");
    return file->plain != nullptr;
}

static bool openStream(RtRVSFile* file, const char* mode)
{
    if (isPipe(file)) {
        file->plain = openPipe(file->file_name + 1, mode);
        file->is_stream = true;
        if (!file->plain)
            RvMsgError("can't open pipe %s", file->file_name);
        return file->plain != nullptr;
    }
    if (!strcmp(file->file_name, "-")) {
        file->plain = stdin;
        file->is_stream = true;
        return true;
    }
    if (!strcmp(mode, "r"))
        return openForReading(file);
    return !strcmp(mode, "w") && openForWriting(file, mode);
}

} // namespace rv

RtRVSFile* RvRVSOpenFile(const char* name, const char* mode)
{
    if (!name || !mode)
        return nullptr;
    RtRVSFile* const file = RvRVSCreateFile(name);
    if (!file) {
        RvMsgError("can't create input file %s", name);
        return nullptr;
    }
    errno = 0;
    if (rv::openStream(file, mode))
        return file;
    const int reason = errno;
    RvRVSDestroyFile(file);
    errno = reason;
    return nullptr;
}

int RvRVSCloseFile(RtRVSFile* file, const char* mode)
{
    if (!file)
        return 0;
    if (rv::isPipe(file) && file->plain) {
        FILE* const pipe = file->plain;
        file->plain = nullptr;
        if (rv::closePipe(pipe) != 0)
            return -1;
    } else if (!file->is_stream) {
        const bool is_written = !strcmp(mode, "w");
        const int result = is_written && !file->is_compressed
                               ? fclose(std::exchange(file->plain, nullptr))
                               : gzclose(std::exchange(file->gzip, nullptr));
        if (is_written && result != 0)
            return -1;
    }
    RvRVSDestroyFile(file);
    return 0;
}

// ---- Characters ----

namespace rv {

static void reportReadError(RtRVSFile* file)
{
    int code = Z_OK;
    const char* const text = gzerror(file->gzip, &code);
    if (file->has_failed || code == Z_OK || code == Z_STREAM_END)
        return;
    file->has_failed = true;
    RvMsgError("%s: %s", file->file_name, code == Z_ERRNO ? strerror(errno) : text);
}

// At most `size` bytes; 0 at the end of the input.
static size_t readBytes(RtRVSFile* file, char* out, size_t size)
{
    if (file->text) {
        const size_t taken = size < file->text_length ? size : file->text_length;
        memcpy(out, file->text, taken);
        file->text += taken;
        file->text_length -= taken;
        return taken;
    }
    if (file->plain)
        return fread(out, 1, size, file->plain);
    if (!file->gzip)
        return 0;
    const int count = gzread(file->gzip, out, static_cast<unsigned>(size));
    if (count > 0)
        return static_cast<size_t>(count);
    reportReadError(file);
    return 0;
}

void refill(RtRVSFile* file)
{
    size_t filled = 0;
    while (filled < scene_buffer_size) {
        const size_t count = readBytes(file, file->buffer + filled, scene_buffer_size - filled);
        if (count == 0)
            break;
        filled += count;
    }
    memset(file->buffer + filled, end_marker, scene_buffer_size + 1 - filled);
    file->length = static_cast<uint32_t>(filled);
    file->position = 0;
}

void readFromText(RtRVSFile* file, const char* text, size_t length)
{
    file->text = text;
    file->text_length = length;
    file->position = file->length = scene_buffer_size;
    file->pending_cursor = nullptr;
}

bool atEnd(const RtRVSFile* file)
{
    return (!file->pending_cursor || !*file->pending_cursor) && file->length < scene_buffer_size &&
           file->position >= file->length;
}

// Discards the rest of a line.
static void skipComment(RtRVSFile* file)
{
    for (;;) {
        const char c = readChar(file);
        if (c == '\n' || c == end_marker)
            break;
    }
    countLine();
}

bool skipBlanks(RtRVSFile* file)
{
    for (;;) {
        const char c = readChar(file);
        if (c == '#') {
            skipComment(file);
        } else if (c == '\n') {
            countLine();
        } else if (c != ' ' && c != '\t') {
            if (c == end_marker)
                return false;
            unreadChar(file);
            return true;
        }
    }
}

// ---- Tokens ----

// Pushed-back tokens are complete: a token is never read a second time by the rules of quotes,
// backslashes and comments. No token holds a carriage return, so it ends each of them. The blank
// before it is for those who read characters.
static const char pushback_end[] = " \r";

void pushBack(RtRVSFile* file, const ReadToken (&tokens)[3])
{
    // What was pushed back before is used up: these three tokens were read since.
    char* out = file->pending;
    for (const ReadToken& token : tokens) {
        const size_t length = strlen(token.text);
        memcpy(out, token.text, length);
        out += length;
        if (token.is_cut)
            *out++ = '"';
        memcpy(out, pushback_end, 2);
        out += 2;
    }
    *out = '\0';
    file->pending_cursor = file->pending;
}

static size_t takePushedBack(RtRVSFile* file, char* token)
{
    const char* const text = file->pending_cursor;
    const char* const end = strchr(text, pushback_end[1]);
    const size_t length = static_cast<size_t>(end - text) - 1;
    memcpy(token, text, length);
    token[length] = '\0';
    file->pending_cursor = end + 1;
    return length;
}

static constexpr size_t token_limit = scene_token_size - 1;

// Reads to the end of a token whose first character is next. Returns its length.
static size_t readTokenText(RtRVSFile* file, char* token)
{
    size_t i = 0;
    bool is_escaped = false;
    for (;;) {
        if (i == token_limit) {
            RvMsgError("string longer than %d characters", static_cast<int>(scene_token_size));
            return i;
        }
        const bool is_quoted = i > 0 && token[0] == '"';
        const char c = readChar(file);
        switch (c) {
        case '\0':
        case end_marker: return i;
        case '\n':
            if (!is_quoted) {
                countLine();
                return i;
            }
            token[i++] = c; // Required: not counted as a line
            break;
        case '\t':
        case ' ':
            if (!is_quoted)
                return i;
            token[i++] = c;
            break;
        case '"':
            token[i++] = c;
            if (is_quoted)
                return i;
            break;
        case '\\':
            if (readChar(file) == '"') {
                token[i++] = '"';
                is_escaped = !is_escaped;
            } else {
                unreadChar(file);
                token[i++] = c;
            }
            break;
        case '#':
            // Required: a comment begins inside quotes too, except after an odd number of escaped
            // quotes.
            if (!is_escaped) {
                skipComment(file);
                file->is_cut = is_quoted;
                return i;
            }
            token[i++] = c;
            break;
        default: token[i++] = c;
        }
    }
}

static void useSlashes(char* text)
{
    for (char* c = strchr(text, '\\'); c; c = strchr(c, '\\'))
        *c = '/';
}

} // namespace rv

size_t RvRVSReadToken(RtRVSFile* file, char* token)
{
    ++file->token_count;
    file->is_cut = false;
    rv::skipBlanks(file);
    if (file->pending_cursor && *file->pending_cursor)
        return rv::takePushedBack(file, token);
    const size_t length = rv::readTokenText(file, token);
    token[length] = '\0';
    return length;
}

int RvRVSTokenKind(const char* token)
{
    static constexpr struct {
        const char* text;
        int kind;
    } keywords[] = {
        { "{", rv::RV_TOKEN_OPEN },    { "}", rv::RV_TOKEN_CLOSE },     { "yes", rv::RV_TOKEN_YES },
        { "no", rv::RV_TOKEN_NO },     { "on", rv::RV_TOKEN_ON },       { "off", rv::RV_TOKEN_OFF },
        { "true", rv::RV_TOKEN_TRUE }, { "false", rv::RV_TOKEN_FALSE },
    };
    for (const auto& keyword : keywords)
        if (!strcmp(token, keyword.text))
            return keyword.kind;
    if (token[0] == '/' && token[1] == '*')
        return rv::RV_TOKEN_COMMENT;
    if (token[0] == '"' && token[strlen(token) - 1] == '"')
        return rv::RV_TOKEN_QUOTED;
    return *token ? rv::RV_TOKEN_OTHER : rv::RV_TOKEN_END;
}

void RvRVSUnquote(char* text)
{
    const size_t length = strlen(text);
    if (length < 3) {
        *text = '\0';
    } else if (*text == '"' || *text == '<') {
        memmove(text, text + 1, length - 2);
        text[length - 2] = '\0';
    }
}

size_t RvRVSReadWord(RtRVSFile* file, char* word)
{
    const size_t length = RvRVSReadToken(file, word);
    if (file->is_cut) // closed at the cut
        memmove(word, word + 1, length);
    else if (*word == '"')
        RvRVSUnquote(word);
    rv::useSlashes(word);
    return length;
}

// ---- Plain numbers ----

namespace rv {

static bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Numbers of at most this many digits fit into 64 bits.
static constexpr ptrdiff_t max_digits = 18;

// mantissa x 10^exponent where that is one rounding of exact operands: up to 2^53 and 10^22
// (Clinger, How to read floating point numbers accurately, 1990).
static bool isExactProduct(uint64_t mantissa, int exponent)
{
    return mantissa <= uint64_t{ 1 } << 53 && exponent >= -22 && exponent <= 22;
}

static double exactProduct(uint64_t mantissa, int exponent)
{
    static constexpr double powers_of_ten[] = { 1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22 };
    const double value = static_cast<double>(mantissa);
    return exponent < 0 ? value / powers_of_ten[-exponent] : value * powers_of_ten[exponent];
}

static const char* scanDigits(const char* p, uint64_t* value)
{
    for (; isDigit(*p); ++p)
        *value = *value * 10 + static_cast<uint64_t>(*p - '0'); // wraps when there are too many
    return p;
}

static const char* scanExponent(const char* p, int* exponent)
{
    const bool is_negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    if (!isDigit(*p))
        return nullptr;
    int value = 0;
    for (; isDigit(*p); ++p)
        value = value < 100000 ? value * 10 + (*p - '0') : value;
    *exponent += is_negative ? -value : value;
    return p;
}

// The end of the decimal number that begins at p, which ends before a character that no number
// holds; null when there is none or it takes more than this to convert.
static const char* scanNumber(const char* p, float* out)
{
    const char* const token = p;
    const bool is_negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    const char* const first = p;
    uint64_t mantissa = 0;
    int exponent = 0;
    p = scanDigits(p, &mantissa);
    ptrdiff_t digits = p - first;
    if (*p == '.') {
        const char* const fraction = ++p;
        p = scanDigits(p, &mantissa);
        exponent = -static_cast<int>(p - fraction);
        digits += p - fraction;
    }
    if (digits == 0)
        return nullptr;
    if (*p == 'e' || *p == 'E')
        p = scanExponent(p + 1, &exponent);
    if (!p || size_t(p - token) >= token_limit) // a longer token is reported and cut
        return nullptr;
    double value = 0;
    if (digits <= max_digits && isExactProduct(mantissa, exponent)) {
        value = exactProduct(mantissa, exponent);
    } else {
        const auto [end, error] = std::from_chars(first, p, value);
        if (end != p || error != std::errc{})
            return nullptr;
    }
    *out = static_cast<float>(is_negative ? -value : value);
    return p;
}

template <class Integer> static const char* scanNumber(const char* p, Integer* out)
{
    const bool is_negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    uint64_t value = 0;
    const char* const end = scanDigits(p, &value);
    if (end == p || end - p > max_digits)
        return nullptr;
    *out = static_cast<Integer>(is_negative ? 0 - value : value);
    return end;
}

// The place behind the blank or newline that ends a number, null when something else follows.
static const char* passNumberEnd(const char* p, int* lines)
{
    if (*p == ' ' || *p == '\t')
        return p + 1;
    if (*p == '\r')
        ++p;
    if (*p != '\n')
        return nullptr;
    ++*lines;
    return p + 1;
}

// The guard byte ends every scan within the buffer.
template <class Number>
static size_t readPlainNumbers(RtRVSFile* file, Number* out, size_t max_count)
{
    if (file->pending_cursor && *file->pending_cursor)
        return 0;
    const char* accepted = file->buffer + file->position;
    int accepted_lines = 0;
    size_t count = 0;
    while (count < max_count) {
        const char* p = accepted;
        int lines = accepted_lines;
        for (; *p == ' ' || *p == '\n' || *p == '\t' || *p == '\r'; ++p)
            lines += *p == '\n';
        p = scanNumber(p, out + count);
        p = p ? passNumberEnd(p, &lines) : nullptr;
        if (!p)
            break;
        accepted = p;
        accepted_lines = lines;
        ++count;
    }
    file->position = static_cast<uint32_t>(accepted - file->buffer);
    if (count > 0)
        file->pending_cursor = nullptr;
    file->token_count += static_cast<uint32_t>(count);
    scene_file_line.fetch_add(accepted_lines, std::memory_order_relaxed);
    return count;
}

size_t readPlainFloats(RtRVSFile* file, float* out, size_t max_count)
{
    return readPlainNumbers(file, out, max_count);
}

size_t readPlainIntegers(RtRVSFile* file, int32_t* out, size_t max_count)
{
    return readPlainNumbers(file, out, max_count);
}

size_t readPlainBytes(RtRVSFile* file, uint8_t* out, size_t max_count)
{
    return readPlainNumbers(file, out, max_count);
}

int32_t textToInteger(const char* text) { return static_cast<int32_t>(strtol(text, nullptr, 10)); }

} // namespace rv
