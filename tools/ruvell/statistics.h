// The statistics report of the library, gathered line by line, and a render's figures as JSON.
#ifndef RUVELL_STATISTICS_H
#define RUVELL_STATISTICS_H

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace ruvell {

// One line of the report with its indentation level.
struct StatisticsLine {
    std::string text;
    int tab = 0;
};

// The sections of a report: each with its title, the heads of its columns and its rows; each row
// with its label, depth, text and the numbers in it. Durations are numbers of seconds.
nlohmann::ordered_json statisticsSections(const std::vector<StatisticsLine>& lines);

// Largest resident memory of the process so far, in bytes.
unsigned long long peakMemory();

} // namespace ruvell

#endif
