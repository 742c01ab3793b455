// What the tests of the statistics report share: a report made from a record that a test fills, as
// lines of text.
#ifndef RV_REPORT_TOOLS_H
#define RV_REPORT_TOOLS_H

#include "frame_fixture.h"
#include "stats.h"

namespace report_tools {

using Lines = std::vector<std::string>;

inline const std::string separator(89, '-');

// As many blanks as the indentation, "W " for warnings, and the text.
inline std::string lineOf(const LoggedMessage& m)
{
    return std::string(size_t(m.tab), ' ') + (m.severity == 1 ? "W " : "") + m.text;
}

class Reports : public BareFrame {
protected:
    Reports() { report.has_image = true; }

    // The whole report.
    Lines print()
    {
        messages().clear();
        rv::printReport(report);
        Lines lines;
        for (const LoggedMessage& m : messages())
            lines.push_back(lineOf(m));
        return lines;
    }

    static size_t find(const Lines& lines, const std::string& title)
    {
        size_t at = 0;
        while (at < lines.size() && lines[at].compare(0, title.size(), title) != 0)
            ++at;
        return at;
    }

    // A title, all of it or its beginning, with the rows below it; nothing without it.
    Lines section(const std::string& title)
    {
        const Lines lines = print();
        const size_t first = find(lines, title);
        size_t end = std::min(first + 1, lines.size());
        while (end < lines.size() && lines[end][0] == ' ')
            ++end;
        return { lines.begin() + long(std::min(first, end)), lines.begin() + long(end) };
    }

    // The rows alone.
    Lines rows(const std::string& title)
    {
        Lines all = section(title);
        if (!all.empty())
            all.erase(all.begin());
        return all;
    }

    bool hasSection(const std::string& title) { return !section(title).empty(); }

    // Whether that line, or the beginning of it, is printed.
    bool hasLine(const std::string& line)
    {
        const Lines lines = print();
        return find(lines, line) < lines.size();
    }

    bool isSeparated(const std::string& title)
    {
        const Lines lines = print();
        const size_t at = find(lines, title);
        return at > 0 && at < lines.size() && lines[at - 1] == separator;
    }

    rv::Report report = {};
    RtStats& s = report.counts;
};

} // namespace report_tools

#endif
