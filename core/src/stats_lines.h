// What the parts of the statistics report share: lines, and the numbers in them.
#ifndef RV_STATS_LINES_H
#define RV_STATS_LINES_H

#include "msg.h"
#include "stats.h"

#include <algorithm>

namespace rv {

inline constexpr int stats_mask = RV_LOG_STATS;

// ---- Lines ----

// The lines of the scope stand one step further to the right.
class Rows {
public:
    Rows() { RvMsgTab(1); }
    ~Rows() { RvMsgTab(-1); }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
};

void separator();

// The performance warnings, when there is something to warn of.
void printWarnings(const Report& report);

// ---- Numbers ----

// Whatever is divided by zero is 0.
template <class A, class B> inline double ratio(A part, B whole)
{
    return whole ? double(part) / double(whole) : 0;
}

template <class A, class B> inline double percent(A part, B whole)
{
    return whole ? double(part) * 100 / double(whole) : 0;
}

// Wall clock and processor time of some work, and on how many threads it ran.
struct Work {
    int64_t wall_ms, processor_ms, threads;

    double utilization() const { return wall_ms ? percent(processor_ms, wall_ms * threads) : 100; }
};

inline int64_t threadCount(const RtStats& counts) { return std::max<int64_t>(counts.threads, 1); }

inline Work sceneWork(const RtStats& counts)
{
    return { counts.scene_ms, counts.scene_user_ms, threadCount(counts) };
}

inline Work renderWork(const RtStats& counts)
{
    return { counts.render_ms, counts.render_user_ms, threadCount(counts) };
}

} // namespace rv

#endif
