// Statistics: the sum of what all threads counted, and the report of it that ends a render.
#ifndef RV_STATS_H
#define RV_STATS_H

#include "counters.h"

#include <string>

namespace rv {

// What a report tells.
struct Report {
    RtStats counts; // of all threads
    bool has_image; // false when the scene was only prepared
    int64_t startup_bytes;
    int64_t string_bytes;
    const char* string_summary; // of the string pool, one line
    int64_t texture_bytes;
    std::string textures; // the texture system's own account, any number of lines
};

// Adds a record: counts are added up, of maxima the larger one stays.
void addStats(RtStats* sum, const RtStats& record);

// Writes the report to the log.
void printReport(const Report& report);

// The step of a render: reports what the records of the universe hold, if anybody reads it. No
// worker runs meanwhile.
void printStatistics();

} // namespace rv

#endif
