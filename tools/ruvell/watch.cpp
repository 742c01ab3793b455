// The thread that waits for Ctrl-C and for the end of the time.
#include "watch.h"
#include "command.h"
#include "report.h"
#include "signals.h"
#include "terminal.h"
#include <algorithm>
#include <poll.h>
#include <ruvell/rv.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace ruvell {

static constexpr Milliseconds tick_time(200);

// Every thread started from now on leaves the signals to the watch.
static int openSignals(const sigset_t& stop_signals)
{
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);
    const int file = signalfd(-1, &stop_signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (file < 0) // then they end the process at once, rather than never
        pthread_sigmask(SIG_UNBLOCK, &stop_signals, nullptr);
    return file;
}

Watch::Watch(std::optional<Milliseconds> timeout, Milliseconds grace_time,
             std::function<void()> on_tick)
    : grace(grace_time), deadline(timeout ? std::optional(Clock::now() + *timeout) : std::nullopt),
      tick(std::move(on_tick)), stop_signals(stopSignals()), signals(openSignals(stop_signals)),
      finished(eventfd(0, EFD_CLOEXEC)), thread([this] { run(); })
{
    const std::lock_guard guard(mutex);
    if (deadline) // set already now: the watch itself may wait, for a pipe that is full
        leaveAt(*deadline + grace, exit_timeout);
}

Watch::~Watch()
{
    {
        const std::lock_guard guard(mutex);
        has_ended = true;
    }
    eventfd_write(finished, 1);
    thread.join();
    cancelLeaving();
    close(signals);
    close(finished);
    pthread_sigmask(SIG_UNBLOCK, &stop_signals, nullptr);
}

int Watch::stopCode() const
{
    const std::lock_guard guard(mutex);
    return code;
}

// The request to stop is refused outside of a render, so the watch repeats it with every tick: it
// may come between the decision to render and the render.
int Watch::render()
{
    {
        const std::lock_guard guard(mutex);
        if (code != exit_success)
            return RV_INTERRUPT;
        is_rendering = true;
    }
    const int result = RvRender(RV_RENDER_MODE_CAMERA);
    const std::lock_guard guard(mutex);
    is_rendering = false;
    // A request that comes while the render is prepared makes it fail.
    return result == RV_ABORT && code != exit_success ? RV_INTERRUPT : result;
}

// Once the process is to leave, nothing puts it off.
void Watch::leaveAt(Clock::time_point time, int late_code)
{
    if (last_moment && *last_moment <= time)
        return;
    last_moment = time;
    leaveAfter(std::chrono::duration_cast<Milliseconds>(time - Clock::now()), late_code,
               "the render did not end within " + clockText(grace) +
                   " of being told to (see --grace); its unfinished images are removed");
}

// The first reason gives the exit code.
void Watch::stop(int stop_code, const char* why)
{
    if (code == exit_success)
        code = stop_code;
    if (!is_rendering) { // there is nothing to save, and loads cannot be stopped otherwise
        if (code == exit_timeout)
            writeLastLine("ruvell: error: out of time");
        leave(code);
    }
    leaveAt(Clock::now() + grace, code);
    reportWarning(why);
}

static const char* stopReason(int signal)
{
    switch (signal) {
    case SIGTERM: return "told to end: finishing the running buckets; a second time aborts";
    case SIGHUP: return "the terminal is gone: finishing the running buckets";
    default: return "interrupted: finishing the running buckets; Ctrl-C again aborts";
    }
}

// From then on a signal ends the process even when the watch itself waits, for a terminal that is
// stopped or a pipe that is full.
void Watch::receiveSignal()
{
    signalfd_siginfo info;
    if (read(signals, &info, sizeof info) != static_cast<ssize_t>(sizeof info))
        return;
    pthread_sigmask(SIG_UNBLOCK, &stop_signals, nullptr);
    const auto signal = static_cast<int>(info.ssi_signo);
    const std::lock_guard guard(mutex);
    stop(exit_signal + signal, stopReason(signal));
}

// Less before the end of the time, which is not to be overslept.
Milliseconds Watch::timeToNextTick() const
{
    if (!deadline || stopCode() != exit_success)
        return tick_time;
    const auto left = std::chrono::ceil<Milliseconds>(*deadline - Clock::now());
    return std::clamp(left, Milliseconds(0), tick_time);
}

void Watch::waitForEvent()
{
    pollfd events[] = { { signals, POLLIN, 0 }, { finished, POLLIN, 0 } };
    poll(events, 2, static_cast<int>(timeToNextTick().count()));
    if (events[0].revents)
        receiveSignal();
}

void Watch::run()
{
    for (;;) {
        waitForEvent();
        const std::lock_guard guard(mutex);
        if (has_ended)
            return;
        if (code == exit_success && deadline && Clock::now() >= *deadline)
            stop(exit_timeout, "out of time: finishing the running buckets");
        if (is_rendering && code != exit_success)
            RvRenderInterrupt();
        if (is_rendering)
            tick();
    }
}

} // namespace ruvell
