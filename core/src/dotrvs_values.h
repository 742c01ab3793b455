// Text on its way into a scene file, and values in the syntax of scene files.
#ifndef RV_DOTRVS_VALUES_H
#define RV_DOTRVS_VALUES_H

#include "dotrvs.h"
#include "msg.h"
#include "number_text.h"

#include <string.h>

namespace rv {

// Collects text in the buffer of an open output file and hands it on in large pieces. The first
// failure is remembered, and all further text dropped.
class SceneText {
public:
    explicit SceneText(RtRVSFile* output)
        : file(output), cursor(output->buffer), end(output->buffer + scene_buffer_size)
    {
    }

    // Room for one number or another short text without a newline. put() makes it part of the file.
    char* room()
    {
        if (end - cursor < room_size)
            flush();
        return cursor;
    }
    void put(char* text_end) { cursor = text_end; }

    void write(char c)
    {
        char* const out = room();
        *out = c;
        put(out + 1);
    }
    // Counts the newlines of the text.
    void write(const char* text, size_t size);
    void write(const char* text) { write(text, strlen(text)); }
    void newline();

    // Characters of the line that is being written.
    ptrdiff_t column() const { return cursor - file->buffer - line_start; }

    // Hands everything to the file; false when anything failed since the beginning.
    bool finish();
    // What failed, as in errno; 0 for nothing.
    int failure() const { return failed; }

private:
    static constexpr ptrdiff_t room_size = 4 * number_text_size;

    void append(const char* text, size_t size);
    void flush();
    void check(bool succeeded);

    RtRVSFile* file;
    char* cursor;
    char* end;
    ptrdiff_t line_start = 0; // relative to the buffer, negative when it was handed on
    int failed = 0;
};

// A value that is no array. `value` is where it is stored; enum_names is that of its parameter, and
// null for every type but ENUM.
void writeValue(SceneText* out, int type, const void* value, const char* const* enum_names);

// An array of the node, or null.
void writeArray(SceneText* out, const RtNode* node, const RtArray* array);

} // namespace rv

#endif
