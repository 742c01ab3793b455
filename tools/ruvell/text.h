// Small helpers for text.
#ifndef RUVELL_TEXT_H
#define RUVELL_TEXT_H

#include <string>
#include <vector>

namespace ruvell {

std::string joined(const std::vector<std::string>& words, const std::string& separator);

// TEXT between two marks.
std::string quoted(const std::string& text, char mark);

std::string lowered(const std::string& text);

} // namespace ruvell

#endif
