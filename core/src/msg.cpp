// msg: the message log. Declared by rv_msg.h and msg.h.
//
// Every entry point ends in emit(), which asks whether any destination wants the message, formats
// it and hands it to the callback. The default callback decorates the text into lines.
#include "msg.h"

#include "frame.h"
#include "rv_plugins.h"
#include "system/clock.h"
#include "system/machine.h"
#include "system/memory.h"

#include <algorithm>
#include <new>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

static constexpr auto relaxed = std::memory_order_relaxed;

namespace {
enum Severity { plain, warning, error, fatal };
}

static constexpr size_t text_bytes = 65536; // longer texts are cut
static constexpr size_t prefix_bytes = 1024;

static RtMsgState* messageState() { return rv::the_frame ? rv::the_frame->msg : nullptr; }

static bool contains(uint32_t flags, int mask) { return (uint32_t(mask) & ~flags) == 0; }

// ------------------------------------------------------------------------------------ lines

namespace {

// Appends to a buffer of fixed size and drops what does not fit.
struct BoundedText {
    char* out;
    size_t size;
    size_t length = 0;

    void append(const char* text, size_t count)
    {
        count = std::min(count, size - 1 - length);
        memcpy(out + length, text, count);
        length += count;
        out[length] = '\0';
    }
    void append(const char* text) { append(text, strlen(text)); }
    void appendFormatted(const char* format, ...) RV_PRINTF_LIKE(2, 3)
    {
        char piece[64];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(piece, sizeof piece, format, arguments);
        va_end(arguments);
        append(piece);
    }
    void appendBlanks(int count)
    {
        for (; count > 0 && length + 1 < size; --count)
            append(" ", 1);
    }
};

} // namespace

// Colour code in front of a message and the code that ends it. Empty on this platform; the flag
// and the rule about who gets a colour are kept for one that has them.
static const char* colorOf(int mask, int severity)
{
    static const char* const severity_colors[] = { "", "", "", "" };
    static const char progress_color[] = "";
    if (severity == plain)
        return mask & RV_LOG_PROGRESS ? progress_color : "";
    return severity >= warning && severity <= fatal ? severity_colors[severity] : "";
}
static constexpr char color_reset[] = "";

static const char* severityColumn(int severity)
{
    static const char* const columns[] = { "        |", "WARNING |", "ERROR   |", "FATAL   |" };
    return severity >= plain && severity <= fatal ? columns[severity] : "";
}

// Everything in front of the text, in a buffer of prefix_bytes.
static void formatPrefix(char* out, unsigned flags, int mask, int severity, int tab,
                         bool allow_color, const rv::LineContext& context)
{
    out[0] = '\0';
    BoundedText prefix{ out, prefix_bytes };
    if (allow_color && (flags & RV_LOG_COLOR))
        prefix.append(colorOf(mask, severity));
    if (flags & RV_LOG_TIMESTAMP) {
        const uint32_t ms = context.elapsed_ms;
        // Required: the hours wrap at 99.
        prefix.appendFormatted("%02u:%02u:%02u ", ms / 3600000 % 99, ms / 60000 % 60,
                               ms / 1000 % 60);
    }
    if (flags & RV_LOG_MEMORY)
        prefix.appendFormatted("%4dmb ", int(context.resident_bytes >> 20));
    prefix.append(severityColumn(severity));
    prefix.appendBlanks(std::min(tab, int(prefix_bytes)) + 1);
    if (severity != plain && context.scene_line != -1)
        prefix.appendFormatted("line %lld: ", context.scene_line + 1LL);
}

size_t rv::formatLine(char* out, size_t size, unsigned flags, int mask, int severity,
                      const char* text, int tab, bool allow_color, const LineContext& context)
{
    if (size == 0)
        return 0;
    char prefix[prefix_bytes];
    formatPrefix(prefix, flags, mask, severity, tab, allow_color, context);
    out[0] = '\0';
    BoundedText line{ out, size };
    line.append(prefix);
    line.append(text ? text : "");
    line.append(color_reset);
    if (line.length + 1 == size && line.length > 0)
        --line.length; // a line that was cut still ends
    line.append("\n", 1);
    return line.length;
}

static void writeLine(FILE* stream, unsigned flags, int mask, int severity, const char* text,
                      int tab, bool allow_color)
{
    const rv::LineContext context = {
        .elapsed_ms = flags & RV_LOG_TIMESTAMP ? RvMsgUtilGetElapsedTime() : 0,
        .resident_bytes = flags & RV_LOG_MEMORY ? RvMsgUtilGetUsedMemory() : 0,
        .scene_line = rv::scene_file_line.load(relaxed),
    };
    char prefix[prefix_bytes];
    formatPrefix(prefix, flags, mask, severity, tab, allow_color, context);
    // One call for the whole line: the lock of the stream keeps it in one piece.
    fprintf(stream, "%s%s%s\n", prefix, text, color_reset);
    fflush(stream);
}

static void defaultCallback(int mask, int severity, const char* text, int tab)
{
    const RtMsgState* const state = messageState();
    if (!state || !text)
        return;
    const uint32_t console_flags = state->console_flags.load(relaxed);
    if (contains(console_flags, mask))
        writeLine(stdout, console_flags, mask, severity, text, tab, true);
    const uint32_t file_flags = state->log_file_flags.load(relaxed);
    FILE* const file = state->log_file.load(std::memory_order_acquire);
    if (file && contains(file_flags, mask))
        writeLine(file, file_flags, mask, severity, text, tab, false);
}

// ------------------------------------------------------------------------------- emission

static void emitHeader()
{
    char host[256 + 2];
    if (rv::hostName(host, 256))
        strcat(host, ", ");
    else
        host[0] = '\0';
    char time_text[64];
    rv::localTimeText(time_text);
    char vendor[256];
    rv::processorVendor(vendor, sizeof vendor);

    RvMsgInfo("log started %s", time_text);
    RvMsgInfo("%s", RvGetVersionInfo());
    RvMsgInfo("running on %s%d x %d mhz %s with %d mb", host, rv::processorCount(),
              rv::processorMHz(), vendor, int(rv::physicalMemory() >> 20));
    RvMsgInfo("%s", "");
}

static bool isWanted(const RtMsgState* state, int mask)
{
    return contains(state->console_flags.load(relaxed), mask) ||
           (state->log_file.load(relaxed) && contains(state->log_file_flags.load(relaxed), mask));
}

// Hands the message to the callback; false when no destination wants it.
static bool emit(RtMsgState* state, int mask, int severity, const char* format, va_list arguments)
{
    if (!isWanted(state, mask))
        return false;
    // Set before the header is written: its own messages must not ask for another.
    if (!state->header_done.exchange(true, relaxed))
        emitHeader();
    char text[text_bytes];
    if (!format || vsnprintf(text, sizeof text, format, arguments) < 0)
        text[0] = '\0';
    if (const RtMsgCallback callback = state->callback.load(relaxed))
        callback(mask, severity, text, std::max(state->tab.load(relaxed), 0));
    return true;
}

static void emitNotice(RtMsgState* state, const char* format, ...) RV_PRINTF_LIKE(2, 3);
static void emitNotice(RtMsgState* state, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    emit(state, RV_LOG_WARNINGS, warning, format, arguments);
    va_end(arguments);
}

// Counts a warning; false when the limit suppresses it.
static bool passesWarningLimit(RtMsgState* state, int mask)
{
    if (!contains(state->console_flags.load(relaxed), mask) &&
        !contains(state->log_file_flags.load(relaxed), mask))
        return true;
    const uint32_t limit = state->max_warnings.load(relaxed);
    const uint32_t number = state->warning_count.fetch_add(1, relaxed) + 1;
    if (limit == 0 || number > limit)
        return false;
    if (number < limit)
        return true;
    // Required: the notice takes the place of the last warning and counts itself, so a limit of
    // 100 shows 99 warnings and then says 101.
    emitNotice(state, "too many warnings (%d)", int(limit + 1));
    return false;
}

static void emitWarning(int mask, const char* format, va_list arguments)
{
    RtMsgState* const state = messageState();
    if (state && passesWarningLimit(state, mask))
        emit(state, mask, warning, format, arguments);
}

static void emitPlain(int mask, const char* format, va_list arguments)
{
    if (RtMsgState* const state = messageState())
        emit(state, mask, plain, format, arguments);
}

// Runs whether or not the error was shown anywhere.
static void applyAbortOnError() { rv::the_frame->hooks->errorLogged(); }

// The variadic functions differ in one call only.
#define FORWARD_MESSAGE(call)                                                                      \
    va_list arguments;                                                                             \
    va_start(arguments, format);                                                                   \
    call;                                                                                          \
    va_end(arguments)

void RvMsgInfo(const char* format, ...)
{
    FORWARD_MESSAGE(emitPlain(RV_LOG_INFO, format, arguments));
}

void RvMsgDebug(const char* format, ...)
{
    FORWARD_MESSAGE(emitPlain(RV_LOG_DEBUG, format, arguments));
}

void RvMsgInfoMasked(int mask, const char* format, ...)
{
    FORWARD_MESSAGE(emitPlain(mask, format, arguments));
}

void RvMsgWarning(const char* format, ...)
{
    FORWARD_MESSAGE(emitWarning(RV_LOG_WARNINGS, format, arguments));
}

void RvMsgWarningMasked(int mask, const char* format, ...)
{
    FORWARD_MESSAGE(emitWarning(mask, format, arguments));
}

void RvMsgError(const char* format, ...)
{
    RtMsgState* const state = messageState();
    if (!state)
        return;
    FORWARD_MESSAGE(emit(state, RV_LOG_ERRORS, error, format, arguments));
    applyAbortOnError();
}

// Required: a fatal message that no destination wants does not end the process.
void RvMsgFatal(const char* format, ...)
{
    RtMsgState* const state = messageState();
    if (!state)
        return;
    bool shown;
    FORWARD_MESSAGE(shown = emit(state, RV_LOG_ERRORS, fatal, format, arguments));
    if (shown)
        abort();
    applyAbortOnError();
}

void rv::reachedInError(const char* module, int line, const char* function)
{
    RvMsgFatal("reached code line in error: %s:%d (in %s)", module, line, function);
}

// ------------------------------------------------------------------------------- settings

void RvMsgTab(int delta)
{
    if (RtMsgState* const state = messageState())
        state->tab.fetch_add(delta, relaxed);
}

void RvMsgSetConsoleFlags(int flags)
{
    if (RtMsgState* const state = messageState())
        state->console_flags.store(uint32_t(flags), relaxed);
}

void RvMsgSetLogFileFlags(int flags)
{
    if (RtMsgState* const state = messageState())
        state->log_file_flags.store(uint32_t(flags), relaxed);
}

void RvMsgSetLogFileName(const char* name)
{
    RtMsgState* const state = messageState();
    if (!state || !name || !*name || state->log_file.load(relaxed))
        return;
    FILE* const file = fopen(name, "w");
    FILE* none = nullptr;
    if (file &&
        !state->log_file.compare_exchange_strong(none, file, std::memory_order_release, relaxed))
        fclose(file); // another thread was first
}

void RvMsgSetMaxWarnings(int n)
{
    if (RtMsgState* const state = messageState())
        state->max_warnings.store(uint32_t(n), relaxed);
}

void RvMsgSetCallback(RtMsgCallback callback)
{
    if (RtMsgState* const state = messageState())
        state->callback.store(callback, relaxed);
}

void RvMsgResetCallback(void) { RvMsgSetCallback(defaultCallback); }

uint32_t RvMsgUtilGetElapsedTime(void)
{
    return rv::the_frame ? rv::wallMilliseconds() - rv::the_frame->start_ms : 0;
}

uint64_t RvMsgUtilGetUsedMemory(void) { return rv::residentMemory(); }

bool rv::isLogged(int mask)
{
    const RtMsgState* const state = messageState();
    return state && state->callback.load(relaxed) && isWanted(state, mask);
}

RtMsgState* rv::msgStateCreate()
{
    void* const memory =
        RvMalloc_func(sizeof(RtMsgState), "core\\src\\msg", __LINE__, "msgStateCreate");
    if (!memory)
        return nullptr;
    auto* const state = new (memory) RtMsgState{};
    state->callback.store(defaultCallback, relaxed);
    state->log_file_flags.store(RV_LOG_ALL, relaxed);
    state->max_warnings.store(100, relaxed);
    return state;
}

void rv::msgStateDestroy(RtMsgState* state)
{
    if (!state)
        return;
    if (FILE* const file = state->log_file.load(std::memory_order_acquire))
        fclose(file);
    RvFree_func(state);
}
