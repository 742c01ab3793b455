// The statistics report of the library, gathered line by line, and a render's figures as JSON.
#ifndef RUVELL_STATISTICS_H
#define RUVELL_STATISTICS_H

#include <cstdio>
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

// The file of --stats-json: a document with one record for each frame, whole after each of them
// wherever it can be, so that nothing is lost when the rest is not rendered.
class StatisticsFile {
public:
    StatisticsFile() = default;
    ~StatisticsFile() { close(); }
    StatisticsFile(const StatisticsFile&) = delete;
    StatisticsFile& operator=(const StatisticsFile&) = delete;

    // Without a name all records are dropped. False, with an error, when it cannot be written.
    bool open(const std::string& name);
    void add(const nlohmann::ordered_json& record);
    // False, with an error, when something has not been written.
    bool close();

private:
    void finishDocument();

    std::string name;
    std::FILE* file = nullptr;
    bool is_first = true;
};

// Largest resident memory of the process so far, in bytes.
unsigned long long peakMemory();

} // namespace ruvell

#endif
