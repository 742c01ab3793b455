// Errors, warnings and suggestions of the command itself.
#include "report.h"
#include "terminal.h"
#include "text.h"
#include <algorithm>
#include <numeric>
#include <utility>

namespace ruvell {

static void report(const char* severity, const std::string& text)
{
    writeLine(std::string("ruvell: ") + severity + ": " + text);
}

void reportError(const std::string& text) { report("error", text); }

void reportWarning(const std::string& text) { report("warning", text); }

// Number of letters to insert, remove or change to make one word of the other.
static size_t editDistance(std::string_view from, std::string_view to)
{
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), size_t{ 0 });
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t change = diagonal + (from[i] != to[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({ row[j] + 1, row[j + 1] + 1, change });
        }
    }
    return row.back();
}

std::vector<std::string> nearestNames(std::string_view wrong, const std::vector<std::string>& known)
{
    static constexpr size_t max_length = 256, max_names = 3;
    if (wrong.size() > max_length)
        return {};
    const size_t tolerance = 1 + wrong.size() / 4;
    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string& name : known) {
        if (name.size() > wrong.size() + tolerance || wrong.size() > name.size() + tolerance)
            continue;
        const size_t distance = editDistance(lowered(std::string(wrong)), lowered(name));
        if (distance <= tolerance)
            near.emplace_back(distance, name);
    }
    std::sort(near.begin(), near.end());

    std::vector<std::string> names;
    for (size_t i = 0; i < std::min(near.size(), max_names); ++i)
        names.push_back(near[i].second);
    return names;
}

std::string suggestion(const std::vector<std::string>& names)
{
    if (names.empty())
        return "";
    std::string text = " (did you mean ";
    for (size_t i = 0; i < names.size(); ++i)
        text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    return text + "?)";
}

} // namespace ruvell
