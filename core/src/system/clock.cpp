// clock: clocks of the platform.
#include "system/clock.h"

#include <string.h>
#include <sys/resource.h>
#include <time.h>

namespace rv {

static constexpr uint64_t nanoseconds_per_second = 1000000000;

static uint64_t readClock(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return uint64_t(now.tv_sec) * nanoseconds_per_second + uint64_t(now.tv_nsec);
}

uint64_t highResolutionCounter() { return readClock(CLOCK_MONOTONIC); }

uint64_t counterFrequency() { return nanoseconds_per_second; }

uint32_t wallMilliseconds() { return uint32_t(highResolutionCounter() / 1000000); }

uint32_t processUserMilliseconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return uint32_t(uint64_t(usage.ru_utime.tv_sec) * 1000 +
                    uint64_t(usage.ru_utime.tv_usec) / 1000);
}

uint64_t threadProcessorNanoseconds() { return readClock(CLOCK_THREAD_CPUTIME_ID); }

void localTimeText(char* out)
{
    const time_t now = time(nullptr);
    if (!ctime_r(&now, out))
        *out = '\0';
    out[strcspn(out, "\n")] = '\0';
}

} // namespace rv
