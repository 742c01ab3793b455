// Small helpers for text.
#ifndef RUVELL_TEXT_H
#define RUVELL_TEXT_H

#include <string>
#include <string_view>
#include <vector>

namespace ruvell {

std::string joined(const std::vector<std::string>& words, const std::string& separator);

// TEXT between two marks.
std::string quoted(const std::string& text, char mark = '"');

// For messages: in double quotes, unless it has some already; cut when it is long.
std::string inQuotes(std::string_view text);

std::string lowered(const std::string& text);

} // namespace ruvell

#endif
