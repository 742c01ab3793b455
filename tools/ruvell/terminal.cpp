// Lines and the status line on standard error.
#include "terminal.h"
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ruvell {

// What is on the screen. One mutex keeps lines whole and the status line below them.
static std::mutex screen_mutex;
static std::atomic<bool> status_is_shown = false; // a signal may ask, too

static const char* const erase_line = "\r\033[K";

bool hasTerminal()
{
    static const bool is_terminal = isatty(STDERR_FILENO) != 0;
    return is_terminal;
}

static size_t terminalWidth()
{
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;
    return size.ws_col;
}

// Bytes of UTF-8 pass; what moves the cursor or talks to the terminal does not.
std::string printable(std::string text)
{
    const auto is_control = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t' && c != '\n') || byte == 0x7F;
    };
    std::replace_if(text.begin(), text.end(), is_control, '?');
    return text;
}

static void eraseStatus()
{
    if (status_is_shown)
        std::fputs(erase_line, stderr);
    status_is_shown = false;
}

void writeLine(const std::string& text)
{
    const std::lock_guard guard(screen_mutex);
    eraseStatus();
    std::fputs((printable(text) + "\n").c_str(), stderr);
    std::fflush(stderr);
}

void showStatus(const std::string& text)
{
    const std::lock_guard guard(screen_mutex);
    std::string line = printable(text).substr(0, terminalWidth() - 1);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\t'; }, '?');
    std::fputs((erase_line + line).c_str(), stderr);
    std::fflush(stderr);
    status_is_shown = true;
}

void clearStatus()
{
    const std::lock_guard guard(screen_mutex);
    eraseStatus();
    std::fflush(stderr);
}

// A pipe that is ready takes whole lines of this length.
static void writeNow(const char* text)
{
    pollfd output = { STDERR_FILENO, POLLOUT, 0 };
    if (poll(&output, 1, 0) != 1 || !(output.revents & POLLOUT))
        return;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text, std::strlen(text));
}

void writeLastLine(const char* text)
{
    if (status_is_shown)
        writeNow(erase_line);
    if (!text)
        return;
    writeNow(text);
    writeNow("\n");
}

} // namespace ruvell
