// Messages that are given once.
#ifndef RV_REPORT_ONCE_H
#define RV_REPORT_ONCE_H

#include <atomic>

namespace rv {

// True for the first caller until the flag is cleared. What has been reported is only read from
// then on, so that threads that meet it at every sample do not take the flag from each other.
inline bool isFirst(std::atomic<bool>& is_reported)
{
    return !is_reported.load(std::memory_order_relaxed) &&
           !is_reported.exchange(true, std::memory_order_relaxed);
}

} // namespace rv

#endif
