// broken_pipe: the signal of a broken pipe, held back and taken off.
#include "system/broken_pipe.h"

#include <signal.h>
#include <time.h>

namespace rv {

static sigset_t pipeSignal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

BrokenPipesFail::BrokenPipesFail()
{
    const sigset_t pipe = pipeSignal();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &pipe, &before);
    was_blocked = sigismember(&before, SIGPIPE) == 1;
}

BrokenPipesFail::~BrokenPipesFail()
{
    if (was_blocked)
        return;
    const sigset_t pipe = pipeSignal();
    const timespec at_once = {};
    while (sigtimedwait(&pipe, nullptr, &at_once) > 0) {
        // Taken off before it can be delivered.
    }
    pthread_sigmask(SIG_UNBLOCK, &pipe, nullptr);
}

} // namespace rv
