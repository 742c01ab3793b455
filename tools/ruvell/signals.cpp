// Signals. The library removes its unfinished files when a process ends by quick_exit(), which may
// be called here because what is done then is a few system calls.
#include "signals.h"
#include "terminal.h"
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sys/time.h>
#include <unistd.h>

namespace ruvell {

static constexpr int stop_signals[] = { SIGINT, SIGTERM, SIGHUP };

// The first to come cleans up, undisturbed by further signals; others wait for its end. It comes
// again itself when there is no memory left to clean up with.
void leave(int code)
{
    static std::atomic_flag is_taken;
    static thread_local bool is_mine = false;
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    while (!is_mine && is_taken.test_and_set())
        pause();
    is_mine = true;
    writeLastLine(nullptr);
    std::quick_exit(code);
}

static void leaveOnSignal(int signal) { leave(128 + signal); }

static bool isIgnored(int signal)
{
    struct sigaction action;
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

static void leaveOn(int signal)
{
    struct sigaction action {};
    action.sa_handler = leaveOnSignal;
    if (!isIgnored(signal))
        sigaction(signal, &action, nullptr);
}

void endTidilyOnSignals()
{
    for (const int signal : stop_signals)
        leaveOn(signal);
    leaveOn(SIGPIPE);
    std::signal(SIGXFSZ, SIG_IGN); // a file that gets too large is an error of its writer
}

sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : stop_signals)
        if (!isIgnored(signal))
            sigaddset(&set, signal);
    return set;
}

// ---- Leaving later ----

// Fixed while the timer runs.
static volatile sig_atomic_t late_code;
static char late_reason[256];

static void leaveLate(int)
{
    writeLastLine(late_reason);
    leave(late_code);
}

static void setTimer(Milliseconds time)
{
    itimerval timer{};
    timer.it_value.tv_sec = time.count() / 1000;
    timer.it_value.tv_usec = time.count() % 1000 * 1000;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void cancelLeaving() { setTimer(Milliseconds(0)); }

// The signal goes to any thread that lets it through; this one does, whatever it has inherited.
void leaveAfter(Milliseconds time, int code, const std::string& why)
{
    cancelLeaving();
    late_code = code;
    std::snprintf(late_reason, sizeof late_reason, "ruvell: error: %s", why.c_str());
    struct sigaction action {};
    action.sa_handler = leaveLate;
    sigaction(SIGALRM, &action, nullptr);
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
    setTimer(std::max(time, Milliseconds(1)));
}

} // namespace ruvell
