// Parsing of the statistics report.
#include "statistics.h"
#include "report.h"
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>
#include <ruvell/rv.h>
#include <sstream>
#include <sys/resource.h>
#include <utility>

namespace ruvell {

using Json = nlohmann::ordered_json;

static constexpr const char* document_end = "\n  ]\n}\n";

static bool isSeparator(const std::string& text)
{
    return text.size() > 20 && text.find_first_not_of('-') == std::string::npos;
}

// "1:02:03.45" in seconds; the hours and minutes may be missing.
static double secondsOf(const std::string& text)
{
    double seconds = 0;
    for (size_t at = 0; at <= text.size();) {
        const size_t colon = std::min(text.find(':', at), text.size());
        seconds = seconds * 60 + std::strtod(text.substr(at, colon - at).c_str(), nullptr);
        at = colon + 1;
    }
    return seconds;
}

static Json numbersIn(const std::string& text)
{
    static const std::regex number("[0-9]+(?::[0-9]+)+(?:\\.[0-9]+)?|-?[0-9]+(?:\\.[0-9]+)?");
    Json numbers = Json::array();
    for (std::sregex_iterator it(text.begin(), text.end(), number), end; it != end; ++it) {
        const std::string word = it->str();
        if (word.find(':') != std::string::npos)
            numbers.push_back(secondsOf(word));
        else if (word.find('.') != std::string::npos)
            numbers.push_back(std::strtod(word.c_str(), nullptr));
        else
            numbers.push_back(std::strtoll(word.c_str(), nullptr, 10));
    }
    return numbers;
}

// The label ends where blanks line up the columns: at the first two in a row, or before the last
// number when it fills its column.
static Json row(const std::string& text, int depth)
{
    static const std::regex form("( *)(.*?)(?:  +| (?=[0-9.:]+$))(.*)");
    std::smatch part;
    if (!std::regex_match(text, part, form))
        return { { "label", text }, { "depth", depth } };
    return { { "label", part[2].str() },
             { "depth", depth + static_cast<int>(part[1].length()) },
             { "text", part[3].str() },
             { "values", numbersIn(part[3].str()) } };
}

// "ray counts:       (/pixel , /sample) ...": a title with the heads of the columns.
static Json section(const std::string& text)
{
    const size_t colon = text.find(':');
    const size_t heads = std::min(text.find_first_not_of(' ', colon + 1), text.size());
    return { { "title", text.substr(0, colon) },
             { "columns", text.substr(heads) },
             { "rows", Json::array() } };
}

static bool isTitle(const std::string& text)
{
    static const std::regex form("[a-z][a-z. ]*(?: \\(in mb\\)| in mb)?:(?: *\\(.*)?");
    return std::regex_match(text, form);
}

Json statisticsSections(const std::vector<StatisticsLine>& lines)
{
    Json sections = Json::array();
    int base = 0;
    bool is_after_separator = false;
    for (const auto& [text, tab] : lines) {
        const bool starts_section = isTitle(text);
        if (text.empty())
            continue;
        if (isSeparator(text)) {
            is_after_separator = true;
            continue;
        }
        if (starts_section) {
            sections.push_back(section(text));
            base = tab + 1;
        } else {
            if (is_after_separator || sections.empty()) {
                sections.push_back(section(":")); // the texture system's own text has no title
                base = tab;
            }
            sections.back()["rows"].push_back(row(text, std::max(tab - base, 0)));
        }
        is_after_separator = false;
    }
    return sections;
}

// ---- The file ----

bool StatisticsFile::open(const std::string& file_name)
{
    name = file_name;
    if (name.empty())
        return true;
    file = std::fopen(name.c_str(), "we");
    if (!file) {
        reportError("cannot write " + name + ": " + std::strerror(errno));
        return false;
    }
    std::fprintf(file, "{\n  \"version\": \"%s\",\n  \"renders\": [",
                 RvGetVersion(nullptr, nullptr, nullptr, nullptr));
    finishDocument();
    return true;
}

// The end of the document, which the next record takes the place of. In a pipe it must wait.
void StatisticsFile::finishDocument()
{
    const long end = std::ftell(file);
    if (end < 0)
        return;
    std::fputs(document_end, file);
    std::fflush(file);
    std::fseek(file, end, SEEK_SET);
}

void StatisticsFile::add(const Json& record)
{
    if (!file)
        return;
    std::istringstream lines(record.dump(2, ' ', false, Json::error_handler_t::replace));
    std::fputs(is_first ? "" : ",", file);
    for (std::string line; std::getline(lines, line);)
        std::fprintf(file, "\n    %s", line.c_str());
    is_first = false;
    finishDocument();
}

bool StatisticsFile::close()
{
    if (!file)
        return true;
    std::fputs(document_end, file);
    const bool had_error = std::ferror(file) != 0;
    const bool is_written = std::fclose(std::exchange(file, nullptr)) == 0 && !had_error;
    if (!is_written)
        reportError("cannot write " + name);
    return is_written;
}

unsigned long long peakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<unsigned long long>(usage.ru_maxrss) * 1024; // KiB on this system
}

} // namespace ruvell
