// Ctrl-C and --timeout. A thread of its own waits for both, so that nothing happens inside of a
// signal handler.
//
// During a render the first Ctrl-C, or the end of the time, asks the library to finish the running
// buckets; the image is then written as far as it got. At other times there is nothing to save and
// the process ends. A second Ctrl-C ends it at once, whatever goes on, and so does the end of the
// grace after the first. SIGTERM and SIGHUP count as Ctrl-C.
#ifndef RUVELL_WATCH_H
#define RUVELL_WATCH_H

#include "duration.h"
#include <csignal>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace ruvell {

class Watch {
public:
    // For work without a render: the first Ctrl-C ends the process.
    Watch() : Watch(std::nullopt, Milliseconds(0), nullptr) {}

    // Starts watching; create it before any other thread. What does not end within the grace, once
    // it is told to, is ended. tick is called about five times a second while a render runs.
    Watch(std::optional<Milliseconds> timeout, Milliseconds grace, std::function<void()> tick);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    // RvRender for a camera image, and its result.
    int render();

    // The exit code once the work was told to stop; exit_success before.
    int stopCode() const;

private:
    using Clock = std::chrono::steady_clock;

    void run();
    Milliseconds timeToNextTick() const;
    void waitForEvent();
    void receiveSignal();
    void stop(int code, const char* why);
    void leaveAt(Clock::time_point time, int code);

    const Milliseconds grace;
    const std::optional<Clock::time_point> deadline;
    const std::function<void()> tick;
    const sigset_t stop_signals;
    int signals = -1;  // readable when one of them has come
    int finished = -1; // readable when the watch is to end

    mutable std::mutex mutex; // guards the rest
    bool is_rendering = false;
    bool has_ended = false;
    int code = 0;
    std::optional<Clock::time_point> last_moment; // when the process leaves, come what may

    std::thread thread;
};

} // namespace ruvell

#endif
