// Joining, quoting, lower case.
#include "text.h"
#include <algorithm>
#include <cctype>

namespace ruvell {

std::string joined(const std::vector<std::string>& words, const std::string& separator)
{
    std::string text;
    for (const std::string& word : words) {
        if (!text.empty())
            text += separator;
        text += word;
    }
    return text;
}

std::string quoted(const std::string& text, char mark)
{
    std::string result(1, mark);
    result += text;
    result += mark;
    return result;
}

std::string inQuotes(std::string_view text)
{
    static constexpr size_t max_shown = 80;
    if (text.size() > max_shown)
        return quoted(std::string(text.substr(0, max_shown)) + "...");
    return text.starts_with('"') ? std::string(text) : quoted(std::string(text));
}

std::string lowered(const std::string& text)
{
    std::string result = text;
    std::transform(text.begin(), text.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

} // namespace ruvell
