// The signals that end the command, and how it leaves without unfinished files.
#ifndef RUVELL_SIGNALS_H
#define RUVELL_SIGNALS_H

#include "duration.h"
#include <csignal>
#include <string>

namespace ruvell {

// From here on Ctrl-C, SIGTERM, SIGHUP and a broken pipe end the process as leave() does, with 128
// and the number of the signal. Those that whoever started us ignores stay ignored. Call it before
// there are threads.
void endTidilyOnSignals();

// Those of them that ask a render to come to an end: all but the broken pipe and the ignored ones.
sigset_t stopSignals();

// Ends the process at once, from any thread or signal handler. Files that the library has not
// finished are removed; older ones in their places stay.
[[noreturn]] void leave(int code);

// Does so later and says why, whatever the threads of the process do or wait for by then. Asked
// again, the last time counts.
void leaveAfter(Milliseconds time, int code, const std::string& why);

// Never mind.
void cancelLeaving();

} // namespace ruvell

#endif
