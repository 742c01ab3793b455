// The thread that waits for Ctrl-C and for the end of the time.
#include "watch.h"
#include "command.h"
#include "report.h"
#include "terminal.h"
#include <csignal>
#include <poll.h>
#include <ruvell/rv.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace ruvell {

static const int tick_milliseconds = 200;

static sigset_t interruptSignal()
{
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    return interrupt;
}

// Every thread started from now on leaves the signal to the watch.
static int openSignals()
{
    const sigset_t interrupt = interruptSignal();
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    return signalfd(-1, &interrupt, SFD_CLOEXEC | SFD_NONBLOCK);
}

Watch::Watch(std::optional<Milliseconds> timeout, std::function<void()> on_tick)
    : deadline(timeout ? std::optional(Clock::now() + *timeout) : std::nullopt),
      tick(std::move(on_tick)), signals(openSignals()), finished(eventfd(0, EFD_CLOEXEC)),
      thread([this] { run(); })
{
}

Watch::~Watch()
{
    {
        const std::lock_guard guard(mutex);
        has_ended = true;
    }
    eventfd_write(finished, 1);
    thread.join();
    close(signals);
    close(finished);
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
    return result;
}

// Nothing is tidied up: there is nothing to save, and loads cannot be stopped otherwise.
[[noreturn]] static void leave(int code)
{
    clearStatus();
    _exit(code);
}

static void abortAtOnce(int) { _exit(exit_interrupted); }

// From now on Ctrl-C ends the process even when the watch itself waits, for a terminal that is
// stopped or a pipe that is full.
static void armAbort()
{
    struct sigaction action {};
    action.sa_handler = abortAtOnce;
    sigaction(SIGINT, &action, nullptr);
    const sigset_t interrupt = interruptSignal();
    pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
}

void Watch::stop(int stop_code, const char* why)
{
    code = stop_code;
    if (!is_rendering)
        leave(code);
    reportWarning(why);
}

void Watch::receiveSignal()
{
    signalfd_siginfo info;
    if (read(signals, &info, sizeof info) != static_cast<ssize_t>(sizeof info))
        return;
    armAbort();
    const std::lock_guard guard(mutex);
    stop(exit_interrupted, "interrupted: finishing the running buckets; Ctrl-C again aborts");
}

void Watch::waitForEvent()
{
    pollfd events[] = { { signals, POLLIN, 0 }, { finished, POLLIN, 0 } };
    poll(events, 2, tick_milliseconds);
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
