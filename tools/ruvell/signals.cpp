// Signals. The library removes its unfinished files when a process ends by quick_exit(), which may
// be called here because what is done then is a few system calls.
#include "signals.h"
#include <cstdlib>

namespace ruvell {

static constexpr int stop_signals[] = { SIGINT, SIGTERM, SIGHUP };

void leave(int code) { std::quick_exit(code); }

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

} // namespace ruvell
