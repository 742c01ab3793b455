// Threads beyond the public interface of rv_threads.h.
#ifndef RV_SYSTEM_THREADS_H
#define RV_SYSTEM_THREADS_H

namespace rv {

// RvThreadCreate for helpers that work can do without: null, and no message, when there is no
// thread to be had.
void* tryCreateThread(unsigned (*function)(void*), void* data, int priority);

} // namespace rv

#endif
