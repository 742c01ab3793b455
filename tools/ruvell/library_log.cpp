// Routing of the library's messages.
#include "library_log.h"
#include "build_info.h"
#include "option_values.h"
#include "report.h"
#include "terminal.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <ruvell/rv.h>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace ruvell {

// ---- State: one log for the process, as the library has ----

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};

struct Listener {
    int mask;
    MessageListener listen;
};

static std::mutex log_mutex; // guards all of the below against messages from several threads
static LogSettings log_settings;
static std::unique_ptr<FILE, CloseFile> log_file;
static std::vector<Listener> listeners;
static int capture_file = -1; // where the library writes during loads

// ---- Which messages go where ----

static int consoleFlags()
{
    if (log_settings.quiet)
        return RV_LOG_ERRORS;
    int flags = RV_LOG_WARNINGS | RV_LOG_ERRORS;
    if (log_settings.verbosity >= 1)
        flags |= RV_LOG_INFO | RV_LOG_LOADING | RV_LOG_PLUGINS | RV_LOG_NAN;
    if (log_settings.verbosity >= 2)
        flags |= RV_LOG_DEBUG;
    return flags;
}

static int logFileFlags()
{
    if (!log_file)
        return 0;
    const int detail = log_settings.verbosity >= 2 ? RV_LOG_DEBUG : 0;
    return RV_LOG_INFO | RV_LOG_WARNINGS | RV_LOG_ERRORS | RV_LOG_STATS | RV_LOG_LOADING |
           RV_LOG_PLUGINS | RV_LOG_PROGRESS | RV_LOG_NAN | detail;
}

static bool holds(int flags, int mask) { return (mask & flags) == mask; }

static const char* const severity_columns[] = { "        ", "WARNING ", "ERROR   ", "FATAL   " };

static Severity severityOf(const std::string& column)
{
    int severity = severity_plain;
    while (severity < severity_fatal && column != severity_columns[severity])
        ++severity;
    return static_cast<Severity>(severity);
}

// ---- Destinations ----

static void showOnConsole(Severity severity, const std::string& text, int tab)
{
    switch (severity) {
    case severity_plain: writeLine(std::string(static_cast<size_t>(2 * tab), ' ') + text); break;
    case severity_warning: reportWarning(text); break;
    default: reportError(text); break;
    }
}

// In the manner of the library's own log file.
static void writeToLogFile(Severity severity, const std::string& text, int tab)
{
    const uint32_t seconds = RvMsgUtilGetElapsedTime() / 1000;
    std::fprintf(log_file.get(), "%02u:%02u:%02u %4dmb %s|%*s%s\n", seconds / 3600 % 99,
                 seconds / 60 % 60, seconds % 60, static_cast<int>(RvMsgUtilGetUsedMemory() >> 20),
                 severity_columns[severity], tab + 1, "", text.c_str());
    std::fflush(log_file.get());
}

static void receiveMessage(int mask, int severity, const char* text, int tab)
{
    const std::lock_guard guard(log_mutex);
    const auto kind = static_cast<Severity>(severity);
    if (holds(consoleFlags(), mask))
        showOnConsole(kind, text, tab);
    if (holds(logFileFlags(), mask))
        writeToLogFile(kind, text, tab);
    for (const Listener& listener : listeners)
        if (holds(listener.mask, mask))
            listener.listen(mask, text, tab);
}

static int wantedFlags()
{
    int flags = consoleFlags() | logFileFlags();
    for (const Listener& listener : listeners)
        flags |= listener.mask;
    return flags;
}

// ---- Set-up ----

void addLogOptions(CLI::App& app, LogSettings& settings)
{
    app.add_flag("-v,--verbose", settings.verbosity,
                 "Say more: what is being done; twice: every detail");
    app.add_flag("-q,--quiet", settings.quiet, "Say nothing but errors");
    app.add_option("--log-file", settings.log_file, "Write a log with times and memory to FILE")
        ->type_name("FILE")
        ->check(checkName);
}

bool openLog(const LogSettings& settings)
{
    log_settings = settings;
    if (settings.log_file.empty())
        return true;
    log_file.reset(std::fopen(settings.log_file.c_str(), "w"));
    if (!log_file)
        reportError("cannot write the log file " + settings.log_file + ": " + std::strerror(errno));
    return log_file != nullptr;
}

void attachLog()
{
    RvMsgSetCallback(receiveMessage);
    RvMsgSetConsoleFlags(wantedFlags());
    RvMsgInfo("built as: %s",
              buildInfo().c_str()); // after the header, which says the same of the interface
}

void setListener(int mask, MessageListener listener)
{
    const std::lock_guard guard(log_mutex);
    listeners.push_back({ mask, std::move(listener) });
}

// ---- Loads: reading back what the library wrote ----

namespace {

// While it lives, the library writes its messages into the anonymous file.
class CaptureScope {
public:
    CaptureScope()
    {
        if (capture_file < 0)
            capture_file = memfd_create("ruvell-messages", MFD_CLOEXEC);
        RvMsgSetLogFileFlags(consoleFlags() | logFileFlags() | RV_LOG_INFO | RV_LOG_WARNINGS |
                             RV_LOG_ERRORS | RV_LOG_TIMESTAMP | RV_LOG_MEMORY);
        RvMsgSetLogFileName(("/proc/self/fd/" + std::to_string(capture_file)).c_str());
        start = lseek(capture_file, 0, SEEK_END); // now: the first call in a universe empties it
        RvMsgSetConsoleFlags(0);
        RvMsgResetCallback();
    }
    ~CaptureScope()
    {
        RvMsgSetCallback(receiveMessage);
        RvMsgSetLogFileFlags(0);
        RvMsgSetConsoleFlags(wantedFlags());
    }
    CaptureScope(const CaptureScope&) = delete;
    CaptureScope& operator=(const CaptureScope&) = delete;

    std::string text() const;

private:
    off_t start = 0;
};

} // namespace

std::string CaptureScope::text() const
{
    std::string text;
    char buffer[65536];
    for (off_t offset = start;;) {
        const ssize_t count = pread(capture_file, buffer, sizeof buffer, offset);
        if (count <= 0)
            return text;
        text.append(buffer, static_cast<size_t>(count));
        offset += count;
    }
}

// Where the severity column of a line begins: behind "HH:MM:SS" and the memory. 0 for a line of
// another form.
static size_t severityColumn(const std::string& line)
{
    static constexpr size_t clock_length = 8;
    const size_t unit = line.find("mb ", clock_length);
    if (unit == std::string::npos || line[2] != ':' || line[5] != ':' || line[clock_length] != ' ')
        return 0;
    if (line.find_first_not_of(" 0123456789", clock_length) != unit)
        return 0;
    return unit + 3;
}

// Takes "line N: " from the front of the text of a warning or error.
static void takeLine(LoadMessage& message)
{
    if (message.severity == severity_plain || !message.text.starts_with("line "))
        return;
    const size_t first = 5, end = message.text.find_first_not_of("0123456789", first);
    if (end == first || end - first > 9 || message.text.compare(end, 2, ": ") != 0)
        return;
    message.line = std::atoi(message.text.c_str() + first);
    message.text.erase(0, end + 2);
}

// A line is "HH:MM:SS", the memory, the severity column, a bar, tab + 1 blanks, for warnings and
// errors during parsing "line N: ", and the text. Lines of another form continue the text before.
// Texts have any length, which regular expressions of the standard library do not survive.
static std::vector<LoadMessage> parseLog(const std::string& log)
{
    static constexpr size_t severity_length = 8;
    std::vector<LoadMessage> messages;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        const size_t column = severityColumn(line);
        const size_t bar = column + severity_length;
        if (column == 0 || line.size() <= bar || line[bar] != '|') {
            if (!messages.empty())
                messages.back().text += "\n" + line;
            continue;
        }
        const size_t text = std::min(line.find_first_not_of(' ', bar + 1), line.size());
        LoadMessage message;
        message.severity = severityOf(line.substr(column, severity_length));
        message.tab = static_cast<int>(text - bar) - 2;
        message.text = line.substr(text);
        takeLine(message);
        messages.push_back(message);
    }
    return messages;
}

// ---- Loads: which file a message is about ----

namespace {

// A file being loaded. Its messages are indented deeper than the line that announced it.
struct OpenFile {
    std::string name;
    int tab;
    std::string included; // the last file it has included, if any
    int load;             // how many were announced before
    int segment;          // how many it has included
};

} // namespace

// The name in "loading NAME ..."; empty for other messages, among them those about plug-ins.
static std::string announcedFile(const LoadMessage& message)
{
    static constexpr std::string_view begin = "loading ", end = " ...";
    const std::string& text = message.text;
    if (message.severity != severity_plain)
        return "";
    if (text == "reading from stdin ...")
        return "standard input";
    if (!text.starts_with(begin) || !text.ends_with(end) || text.starts_with("loading plugin: ") ||
        text.starts_with("loading plugins from "))
        return "";
    return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

static void closeEndedFiles(std::vector<OpenFile>& open, const LoadMessage& message)
{
    while (!open.empty() && message.tab <= open.back().tab) {
        const std::string ended = open.back().name;
        open.pop_back();
        if (!open.empty()) {
            open.back().included = ended;
            ++open.back().segment;
        }
    }
}

// Names the file and mends the line. The library counts lines afresh after an include, so there the
// number means lines after that.
static void locate(LoadMessage& message, const std::vector<OpenFile>& open)
{
    if (open.empty())
        return;
    const OpenFile* file = &open.back();
    const bool could_not_open = message.text.starts_with(file->name + ": ");
    if (could_not_open && open.size() > 1)
        file = &open[open.size() - 2];
    else if (could_not_open)
        return;
    message.file = file->name;
    message.load = file->load;
    message.segment = file->segment;
    message.counted_line = message.line;
    if (!file->included.empty() && message.line > 0) {
        message.included = file->included;
        message.line = 0;
    }
}

static void locateAll(std::vector<LoadMessage>& messages)
{
    std::vector<OpenFile> open;
    int loads = 0;
    for (LoadMessage& message : messages) {
        closeEndedFiles(open, message);
        if (const std::string name = announcedFile(message); !name.empty())
            open.push_back({ name, message.tab, "", loads++, 0 });
        else if (message.severity != severity_plain)
            locate(message, open);
    }
}

std::string LoadMessage::located() const
{
    if (file.empty())
        return text;
    std::string located = file + (line > 0 ? ":" + std::to_string(line) : "") + ": " + text;
    if (!included.empty())
        located += " (line " + std::to_string(counted_line) + " after the one that includes " +
                   included + ")";
    return located;
}

std::vector<LoadMessage> captureMessages(const std::function<void()>& load)
{
    CaptureScope scope;
    load();
    std::vector<LoadMessage> messages = parseLog(scope.text());
    locateAll(messages);
    return messages;
}

void showMessages(const std::vector<LoadMessage>& messages)
{
    const std::lock_guard guard(log_mutex);
    for (const LoadMessage& message : messages) {
        const bool is_detail = message.severity == severity_plain && log_settings.verbosity == 0;
        if (message.severity >= severity_error || !(is_detail || log_settings.quiet))
            showOnConsole(message.severity, message.located(), message.tab);
        if (log_file)
            writeToLogFile(message.severity, message.located(), message.tab);
    }
}

} // namespace ruvell
