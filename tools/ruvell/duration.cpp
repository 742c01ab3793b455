// Reading and writing spans of time.
#include "duration.h"
#include <charconv>
#include <cstdio>
#include <string_view>

namespace ruvell {

struct TimeUnit {
    std::string_view name;
    double milliseconds;
};

// Longer names first, so that "ms" is not taken for minutes.
static const TimeUnit time_units[] = {
    { "ms", 1 }, { "s", 1000 }, { "m", 60'000 }, { "h", 3'600'000 }, { "d", 86'400'000 },
};

static const double max_milliseconds = 1000 * 86'400'000.0;

static const TimeUnit* unitAt(std::string_view text)
{
    for (const TimeUnit& unit : time_units)
        if (text.starts_with(unit.name))
            return &unit;
    return nullptr;
}

// Takes one number with its unit off the front of text; -1 when there is none. Only a number that
// is all of the text may lack its unit.
static double takeTerm(std::string_view& text, bool is_first)
{
    double number = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
    if (error != std::errc() || !(number >= 0))
        return -1;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    if (text.empty())
        return is_first ? number * 1000 : -1;
    const TimeUnit* unit = unitAt(text);
    if (!unit)
        return -1;
    text.remove_prefix(unit->name.size());
    return number * unit->milliseconds;
}

std::optional<Milliseconds> parseDuration(const std::string& text)
{
    std::string_view rest = text;
    double total = 0;
    for (bool is_first = true; !rest.empty(); is_first = false) {
        const double term = takeTerm(rest, is_first);
        if (term < 0)
            return std::nullopt;
        total += term;
    }
    if (!(total >= 1 && total <= max_milliseconds))
        return std::nullopt;
    return Milliseconds(static_cast<int64_t>(total));
}

std::string clockText(Milliseconds duration)
{
    const long long seconds = duration.count() / 1000;
    char text[64];
    if (seconds >= 3600)
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
                      seconds % 60);
    else
        std::snprintf(text, sizeof text, "%lld:%02lld", seconds / 60, seconds % 60);
    return text;
}

} // namespace ruvell
