// Clocks of the platform.
#ifndef RV_SYSTEM_CLOCK_H
#define RV_SYSTEM_CLOCK_H

#include <stdint.h>

namespace rv {

// Monotonic wall clock in milliseconds; wraps with 32 bits, differences stay right.
uint32_t wallMilliseconds();

// High-resolution counter and its ticks per second.
uint64_t highResolutionCounter();
uint64_t counterFrequency();

// Processor time of the process in user mode, in milliseconds.
uint32_t processUserMilliseconds();

// Processor time of the calling thread.
uint64_t threadProcessorNanoseconds();

// Local time as ctime() prints it, without the newline. out holds at least 26 bytes.
void localTimeText(char* out);

} // namespace rv

#endif
