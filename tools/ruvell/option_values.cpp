// Checks of the values of options.
#include "option_values.h"
#include "duration.h"
#include "text.h"
#include <charconv>

namespace ruvell {

std::optional<int64_t> parseWhole(const std::string& text, int64_t min, int64_t max)
{
    int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    const bool is_whole = error == std::errc() && stop == end;
    return is_whole && value >= min && value <= max ? std::optional(value) : std::nullopt;
}

std::function<std::string(const std::string&)> wholeNumber(int64_t min, int64_t max)
{
    return [=](const std::string& text) {
        return parseWhole(text, min, max) ? ""
                                          : "'" + text + "' is not a whole number from " +
                                                std::to_string(min) + " to " + std::to_string(max);
    };
}

std::string checkName(const std::string& text) { return text.empty() ? "the name is empty" : ""; }

std::optional<uint64_t> parseMemory(const std::string& text)
{
    static constexpr int64_t max_number = 1'000'000'000'000'000;
    static constexpr uint64_t min_bytes = 32 << 20;
    static constexpr struct {
        const char* unit;
        uint64_t bytes;
    } units[] = {
        { "", 1 }, { "k", 1 << 10 }, { "m", 1 << 20 }, { "g", 1 << 30 }, { "t", 1ull << 40 }
    };

    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto number = parseWhole(text.substr(0, digits), 1, max_number);
    const std::string unit = lowered(text.substr(digits));
    uint64_t bytes = 0;
    for (const auto& row : units)
        if (number && (unit == row.unit || unit == std::string(row.unit) + "b") &&
            !__builtin_mul_overflow(static_cast<uint64_t>(*number), row.bytes, &bytes) &&
            bytes >= min_bytes)
            return bytes;
    return std::nullopt;
}

std::string checkMemory(const std::string& text)
{
    return parseMemory(text) ? ""
                             : "'" + text + "' is not a size of 32M or more such as 500M or 4G";
}

std::string checkDuration(const std::string& text)
{
    return parseDuration(text) ? "" : "'" + text + "' is not a duration such as 90s, 2m or 1h30m";
}

CLI::Option* addRepeatable(CLI::App& app, const std::string& names,
                           std::vector<std::string>& values, const std::string& description,
                           const std::string& type_name, const CLI::Validator& check)
{
    return app.add_option(names, values, description)
        ->type_name(type_name)
        ->check(check)
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

} // namespace ruvell
