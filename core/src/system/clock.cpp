// clock: clocks of the platform.
#include "system/clock.h"

#include <string.h>
#include <sys/resource.h>
#include <time.h>

namespace rv {

static uint64_t nanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return uint64_t(now.tv_sec) * 1000000000u + uint64_t(now.tv_nsec);
}

uint32_t wallMilliseconds() { return static_cast<uint32_t>(nanoseconds() / 1000000); }

uint64_t highResolutionCounter() { return nanoseconds(); }

uint64_t counterFrequency() { return 1000000000; }

uint32_t processUserMilliseconds()
{
    rusage usage;
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return 0;
    return static_cast<uint32_t>(uint64_t(usage.ru_utime.tv_sec) * 1000 +
                                 uint64_t(usage.ru_utime.tv_usec) / 1000);
}

void localTimeText(char* out)
{
    const time_t now = time(nullptr);
    tm local;
    if (!localtime_r(&now, &local) || !asctime_r(&local, out)) {
        out[0] = '\0';
        return;
    }
    out[strcspn(out, "\n")] = '\0';
}

} // namespace rv
