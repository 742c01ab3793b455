// Critical sections (rv_threads.h) held for a scope.
#ifndef RV_SYSTEM_CRITICAL_SECTION_H
#define RV_SYSTEM_CRITICAL_SECTION_H

#include "rv_threads.h"

namespace rv {

struct CritSecLock {
    explicit CritSecLock(RtCritSec* cs) : section(cs) { RvCritSecEnter(section); }
    ~CritSecLock() { RvCritSecLeave(section); }
    CritSecLock(const CritSecLock&) = delete;
    CritSecLock& operator=(const CritSecLock&) = delete;

    RtCritSec* section;
};

} // namespace rv

#endif
