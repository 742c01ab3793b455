// The input of the scene reader: characters, tokens and runs of plain numbers.
#ifndef RV_DOTRVS_INPUT_H
#define RV_DOTRVS_INPUT_H

#include "dotrvs.h"
#include "msg.h"

namespace rv {

// What RvRVSTokenKind tells apart. The even ones below 6 mean true, the odd ones false.
enum TokenKind {
    RV_TOKEN_YES = 0,
    RV_TOKEN_NO = 1,
    RV_TOKEN_ON = 2,
    RV_TOKEN_OFF = 3,
    RV_TOKEN_TRUE = 4,
    RV_TOKEN_FALSE = 5,
    RV_TOKEN_QUOTED = 6,
    RV_TOKEN_COMMENT = 7,
    RV_TOKEN_OPEN = 8,
    RV_TOKEN_CLOSE = 9,
    RV_TOKEN_END = 998,
    RV_TOKEN_OTHER = 999
};

inline bool isBooleanKeyword(int kind) { return kind >= RV_TOKEN_YES && kind <= RV_TOKEN_FALSE; }

// The byte 0xFF. It fills the buffer behind the input, so that reading needs no test of length.
inline constexpr char end_marker = -1;

// Places for tokens in the record, so that nested blocks and files need no stack. A token belongs
// to the function that read it until a function it calls reads another into the same place.
enum TokenArea { RV_AREA_NAME, RV_AREA_A, RV_AREA_B, RV_AREA_C };
inline char* tokenArea(RtRVSFile* file, TokenArea area)
{
    return file->areas + size_t(area) * scene_token_size;
}

// Fills the buffer from the input, and the rest of it and the guard byte with end markers.
void refill(RtRVSFile* file);

// Lets a record without a stream read a text, which the caller keeps.
void readFromText(RtRVSFile* file, const char* text, size_t length);

// True when the input is used up. An end marker within a file is not its end for tokens.
bool atEnd(const RtRVSFile* file);

inline void countLine() { scene_file_line.fetch_add(1, std::memory_order_relaxed); }

inline char readChar(RtRVSFile* file)
{
    for (;;) {
        char c;
        if (file->pending_cursor && (c = *file->pending_cursor) != 0) {
            ++file->pending_cursor;
        } else {
            file->pending_cursor = nullptr;
            if (file->position == scene_buffer_size)
                refill(file);
            c = file->buffer[file->position++];
        }
        if (c != '\r')
            return c;
    }
}

// Gives back the character that was read last.
inline void unreadChar(RtRVSFile* file)
{
    if (file->pending_cursor)
        --file->pending_cursor;
    else
        --file->position;
}

inline char peekChar(RtRVSFile* file)
{
    const char c = readChar(file);
    unreadChar(file);
    return c;
}

// Passes blanks, newlines and comments. False at an end marker, which is passed as well.
bool skipBlanks(RtRVSFile* file);

// A token and whether a comment cut it.
struct ReadToken {
    const char* text;
    bool is_cut;
};

// Puts the last three tokens back before the rest of the input.
void pushBack(RtRVSFile* file, const ReadToken (&tokens)[3]);

// Converts numbers as long as they are plain: digits with what makes them a number, within the
// buffer, and ended by a blank. Stops before the first that is not, which RvRVSReadToken then
// reads. Returns how many were written to `out`; each is what atof() narrowed to float, atoi() or
// atol() narrowed to 32 bits gives.
size_t readPlainFloats(RtRVSFile* file, float* out, size_t max_count);
size_t readPlainIntegers(RtRVSFile* file, int32_t* out, size_t max_count);
size_t readPlainBytes(RtRVSFile* file, uint8_t* out, size_t max_count);

// As atoi() and atol() narrowed to 32 bits, which clamp to 64 bits before.
int32_t textToInteger(const char* text);

} // namespace rv

// Reads a token of at most scene_token_size - 1 characters, and returns its length.
size_t RvRVSReadToken(RtRVSFile* file, char* token);
// Kind of a token, by its text.
int RvRVSTokenKind(const char* token);
// Takes the quotes or angle brackets off a text. Required: whatever its last character is, and a
// text of fewer than three characters becomes empty.
void RvRVSUnquote(char* text);
// Reads a token without its quotes and with slashes for backslashes. Returns the length of the
// token, which is 0 at the end of the input only.
size_t RvRVSReadWord(RtRVSFile* file, char* word);

#endif
