// The message log behind rv_msg.h: state, masked messages and the current scene-file line.
#ifndef RV_MSG_INTERNAL_H
#define RV_MSG_INTERNAL_H

#include "rv_msg.h"

#include <atomic>
#include <stdio.h>

// Any thread logs without a lock: the counters are relaxed atomics, so the warning limit is
// approximate under concurrent warnings.
struct RtMsgState {
    std::atomic<FILE*> log_file;
    std::atomic<RtMsgCallback> callback;
    std::atomic<uint32_t> console_flags;
    std::atomic<uint32_t> log_file_flags;
    std::atomic<int> tab;
    std::atomic<uint32_t> warning_count;
    std::atomic<uint32_t> max_warnings;
    std::atomic<bool> header_done;
};

// RvMsgInfo and RvMsgWarning with a mask of the caller's.
void RvMsgInfoMasked(int mask, const char* format, ...) RV_PRINTF_LIKE(2, 3);
void RvMsgWarningMasked(int mask, const char* format, ...) RV_PRINTF_LIKE(2, 3);

namespace rv {

// Zero-based line of the scene file being read, -1 outside. Written by the reading thread.
inline std::atomic<int> scene_file_line{ -1 };

RtMsgState* msgStateCreate();
// Closes the log file and frees the state.
void msgStateDestroy(RtMsgState* state);

// What a line shows beside its text.
struct LineContext {
    uint32_t elapsed_ms;
    uint64_t resident_bytes;
    int scene_line;
};

// One log line, newline included, for a destination with these flags. Returns its length without
// the terminating zero; at most size - 1 characters are written.
size_t formatLine(char* out, size_t size, unsigned flags, int mask, int severity, const char* text,
                  int tab, bool allow_color, const LineContext& context);

// Whether a message with this mask would reach anybody: spares the making of texts nobody reads.
bool isLogged(int mask);

// A broken invariant of the library: fatal "reached code line in error".
void reachedInError(const char* module, int line, const char* function);

} // namespace rv

#endif
