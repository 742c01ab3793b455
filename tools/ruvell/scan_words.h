// Words of findings, and the names that scene files have for types.
#ifndef RUVELL_SCAN_WORDS_H
#define RUVELL_SCAN_WORDS_H

#include <string>
#include <string_view>
#include <vector>

namespace ruvell {

std::string upperCase(std::string_view text);

// In quotes, cut when it is long.
std::string inQuotes(std::string_view text);

// "did you mean A or B?", or nothing without names.
std::string didYouMean(const std::vector<std::string>& names);

// The code of a type by its name in any case; RV_TYPE_NONE when there is no such type.
int typeOfName(std::string_view name);
std::string nearestTypeName(std::string_view wrong); // as didYouMean

// Numbers that one value of the type takes; 0 when it is no number.
int numbersOf(int type);

} // namespace ruvell

#endif
