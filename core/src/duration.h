// The one format of every duration in messages.
#ifndef RV_DURATION_H
#define RV_DURATION_H

#include <stdint.h>

// "0:02.51" for 2,510 ms. The text stands in a buffer of the calling thread until its next call.
const char* RvDurationString(uint32_t milliseconds);

#endif
