// msg: the message log (rv_msg.h): flags, the warning limit, the start-of-log header, line
// formatting and the default destinations.
#include "msg.h"

#include "frame.h"
#include "rv_memory.h"
#include "rv_plugins.h"
#include "system/clock.h"
#include "system/machine.h"

#include <new>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

static const char* const module_path = "core\\src\\msg";

namespace rv {

static constexpr size_t text_size = 65536;
static constexpr size_t prefix_size = 1024;
static constexpr auto relaxed = std::memory_order_relaxed;

static RtMsgState* messageState() { return the_frame ? the_frame->msg : nullptr; }

// ---- Destinations ----

static bool isWanted(int mask, uint32_t flags)
{
    return (static_cast<uint32_t>(mask) & ~flags) == 0;
}

static bool wantedOnConsole(const RtMsgState* state, int mask)
{
    return isWanted(mask, state->console_flags.load(relaxed));
}

static bool wantedInLogFile(const RtMsgState* state, int mask)
{
    return state->log_file.load(relaxed) && isWanted(mask, state->log_file_flags.load(relaxed));
}

// ---- Lines ----

// Appends to a buffer and never past its end.
struct TextBuffer {
    char* text;
    size_t size;
    size_t length = 0;

    void append(const char* format, ...) RV_PRINTF_LIKE(2, 3);
};

void TextBuffer::append(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int written = vsnprintf(text + length, size - length, format, arguments);
    va_end(arguments);
    if (written > 0)
        length += static_cast<size_t>(written);
    if (length >= size)
        length = size - 1;
}

// The escape sequences of this platform are empty; the places where they would stand are kept.
static const char* colorCode(int mask, int severity)
{
    const bool is_colored = severity > 0 || (mask & RV_LOG_PROGRESS);
    return is_colored ? "" : "";
}

static const char* severityColumn(int severity)
{
    static const char* const columns[] = { "        |", "WARNING |", "ERROR   |", "FATAL   |" };
    return severity >= 0 && severity < 4 ? columns[severity] : "";
}

size_t formatLine(char* out, size_t size, unsigned flags, int mask, int severity, const char* text,
                  int tab, bool allow_color, const LineContext& context)
{
    const bool color = allow_color && (flags & RV_LOG_COLOR);
    char prefix_text[prefix_size] = "";
    TextBuffer prefix = { prefix_text, sizeof prefix_text };
    if (color)
        prefix.append("%s", colorCode(mask, severity));
    if (flags & RV_LOG_TIMESTAMP) // Required: the hours wrap at 99
        prefix.append("%02ld:%02ld:%02ld ", static_cast<long>(context.elapsed_ms / 3600000 % 99),
                      static_cast<long>(context.elapsed_ms / 60000 % 60),
                      static_cast<long>(context.elapsed_ms / 1000 % 60));
    if (flags & RV_LOG_MEMORY)
        prefix.append("%4dmb ", static_cast<int>(context.resident_bytes >> 20));
    prefix.append("%s", severityColumn(severity));
    prefix.append("%*s", tab + 1, "");
    if (severity != 0 && context.scene_line != -1)
        prefix.append("line %d: ", context.scene_line + 1);
    TextBuffer line = { out, size };
    line.append("%s%s%s\n", prefix_text, text, color ? "" : "");
    return line.length;
}

static void writeLine(FILE* stream, uint32_t flags, int mask, int severity, const char* text,
                      int tab, bool allow_color)
{
    char line[prefix_size + text_size];
    const LineContext context = { RvMsgUtilGetElapsedTime(),
                                  flags & RV_LOG_MEMORY ? RvMsgUtilGetUsedMemory() : 0,
                                  scene_file_line.load(relaxed) };
    formatLine(line, sizeof line, flags, mask, severity, text, tab, allow_color, context);
    fputs(line, stream);
    fflush(stream);
}

static void defaultCallback(int mask, int severity, const char* text, int tab)
{
    const RtMsgState* const state = messageState();
    if (!state)
        return;
    if (wantedOnConsole(state, mask))
        writeLine(stdout, state->console_flags.load(relaxed), mask, severity, text, tab, true);
    if (wantedInLogFile(state, mask))
        writeLine(state->log_file.load(relaxed), state->log_file_flags.load(relaxed), mask,
                  severity, text, tab, false);
}

// ---- Emitting ----

static void logHeader()
{
    char host[256 + 2];
    if (hostName(host, sizeof host - 2))
        strcat(host, ", ");
    else
        host[0] = '\0';
    char time[32];
    localTimeText(time);
    char vendor[256];
    processorVendor(vendor, sizeof vendor);
    RvMsgInfo("log started %s", time);
    RvMsgInfo("%s", RvGetVersionInfo());
    RvMsgInfo("running on %s%d x %d mhz %s with %d mb", host, processorCount(), processorMHz(),
              vendor, static_cast<int>(physicalMemory() >> 20));
    RvMsgInfo("%s", "");
}

// True when the message reached a destination, whatever the callback made of it.
static bool emit(int mask, int severity, const char* format, va_list arguments)
{
    RtMsgState* const state = messageState();
    if (!state || (!wantedOnConsole(state, mask) && !wantedInLogFile(state, mask)))
        return false;
    if (!state->header_done.exchange(true))
        logHeader();
    char text[text_size];
    vsnprintf(text, sizeof text, format, arguments);
    const int tab = state->tab.load(relaxed);
    if (const RtMsgCallback callback = state->callback.load(relaxed))
        callback(mask, severity, text, tab > 0 ? tab : 0);
    return true;
}

// True when the warning is to be dropped. The notice that warnings stop counts itself.
static bool isOverLimit(int mask)
{
    RtMsgState* const state = messageState();
    if (!state ||
        (!wantedOnConsole(state, mask) && !isWanted(mask, state->log_file_flags.load(relaxed))))
        return false;
    const uint32_t count = state->warning_count.fetch_add(1, relaxed) + 1;
    const uint32_t limit = state->max_warnings.load(relaxed);
    if (limit == 0 || count > limit)
        return true;
    if (count < limit)
        return false;
    state->warning_count.store(0, relaxed);
    state->max_warnings.store(limit + 1, relaxed);
    // Required: the number is one more than the limit.
    RvMsgWarning("too many warnings (%d)", static_cast<int>(limit + 1));
    state->max_warnings.store(limit, relaxed);
    state->warning_count.store(limit, relaxed);
    return true;
}

RtMsgState* msgStateCreate()
{
    void* const memory = RvMalloc_func(sizeof(RtMsgState), module_path, __LINE__, "msgStateCreate");
    if (!memory)
        return nullptr;
    RtMsgState* const state = new (memory) RtMsgState{};
    state->callback = defaultCallback;
    state->log_file_flags = RV_LOG_ALL;
    state->max_warnings = 100;
    return state;
}

void msgStateDestroy(RtMsgState* state)
{
    if (FILE* const file = state->log_file.load())
        fclose(file);
    state->~RtMsgState();
    RvFree_func(state);
}

void reachedInError(const char* module, int line, const char* function)
{
    RvMsgFatal("reached code line in error: %s:%d (in %s)", module, line, function);
}

} // namespace rv

// ---- Entry points ----

#define RV_EMIT(mask, severity, format)                                                            \
    va_list arguments;                                                                             \
    va_start(arguments, format);                                                                   \
    const bool was_shown = rv::emit(mask, severity, format, arguments);                            \
    va_end(arguments)

void RvMsgInfo(const char* format, ...)
{
    RV_EMIT(RV_LOG_INFO, 0, format);
    (void)was_shown;
}

void RvMsgInfoMasked(int mask, const char* format, ...)
{
    RV_EMIT(mask, 0, format);
    (void)was_shown;
}

void RvMsgDebug(const char* format, ...)
{
    RV_EMIT(RV_LOG_DEBUG, 0, format);
    (void)was_shown;
}

void RvMsgWarning(const char* format, ...)
{
    if (rv::isOverLimit(RV_LOG_WARNINGS))
        return;
    RV_EMIT(RV_LOG_WARNINGS, 1, format);
    (void)was_shown;
}

void RvMsgWarningMasked(int mask, const char* format, ...)
{
    if (rv::isOverLimit(mask))
        return;
    RV_EMIT(mask, 1, format);
    (void)was_shown;
}

void RvMsgError(const char* format, ...)
{
    RV_EMIT(RV_LOG_ERRORS, 2, format);
    (void)was_shown;
    if (rv::the_frame && rv::the_frame->hooks)
        rv::the_frame->hooks->errorLogged();
}

// Required: a fatal message that no destination wants lets the process go on.
void RvMsgFatal(const char* format, ...)
{
    RV_EMIT(RV_LOG_ERRORS, 3, format);
    if (was_shown)
        abort();
    if (rv::the_frame && rv::the_frame->hooks)
        rv::the_frame->hooks->errorLogged();
}

// ---- Settings ----

void RvMsgTab(int delta)
{
    if (RtMsgState* const state = rv::messageState())
        state->tab.fetch_add(delta, rv::relaxed);
}

void RvMsgSetConsoleFlags(int flags)
{
    if (RtMsgState* const state = rv::messageState())
        state->console_flags = static_cast<uint32_t>(flags);
}

void RvMsgSetLogFileFlags(int flags)
{
    if (RtMsgState* const state = rv::messageState())
        state->log_file_flags = static_cast<uint32_t>(flags);
}

void RvMsgSetLogFileName(const char* name)
{
    RtMsgState* const state = rv::messageState();
    if (state && name && *name && !state->log_file)
        state->log_file = fopen(name, "w");
}

void RvMsgSetMaxWarnings(int n)
{
    if (RtMsgState* const state = rv::messageState())
        state->max_warnings = static_cast<uint32_t>(n);
}

void RvMsgSetCallback(RtMsgCallback callback)
{
    if (RtMsgState* const state = rv::messageState())
        state->callback = callback;
}

void RvMsgResetCallback(void) { RvMsgSetCallback(rv::defaultCallback); }

uint32_t RvMsgUtilGetElapsedTime(void)
{
    return rv::the_frame ? rv::wallMilliseconds() - rv::the_frame->start_ms : 0;
}

uint64_t RvMsgUtilGetUsedMemory(void) { return rv::residentMemory(); }
