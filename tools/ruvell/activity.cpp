// The status line of whatever is not a render.
#include "activity.h"
#include "duration.h"
#include "terminal.h"
#include <system_error>

namespace ruvell {

static constexpr Milliseconds pause_between_lines(500);

// Without the thread there is only nothing to see.
Activity::Activity(const std::string& text, bool is_quiet) : what(text)
{
    if (is_quiet || !hasTerminal())
        return;
    try {
        thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
    }
}

Activity::~Activity()
{
    if (!thread.joinable())
        return;
    {
        const std::lock_guard guard(mutex);
        has_ended = true;
    }
    ending.notify_one();
    thread.join();
    clearStatus();
}

void Activity::run()
{
    const auto start = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex);
    while (!ending.wait_for(lock, pause_between_lines, [this] { return has_ended; })) {
        const auto elapsed = std::chrono::steady_clock::now() - start;
        showStatus(what + "  " + clockText(std::chrono::duration_cast<Milliseconds>(elapsed)) +
                   " elapsed");
    }
}

} // namespace ruvell
