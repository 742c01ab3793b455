// Words of findings, and the names that scene files have for types.
#ifndef RUVELL_SCAN_WORDS_H
#define RUVELL_SCAN_WORDS_H

#include "text.h"
#include <ruvell/rv.h>
#include <string>
#include <string_view>
#include <vector>

namespace ruvell {

std::string upperCase(std::string_view text);

// "did you mean A or B?", or nothing without names.
std::string didYouMean(const std::vector<std::string>& names);

std::vector<std::string> splitWords(const std::string& text);

// Digits with what belongs to a number.
bool isNumeric(std::string_view token);
// What atof() makes a number of, if only of its beginning.
bool startsAsNumber(std::string_view token);
bool isDigit(char c);
bool isBooleanKeyword(std::string_view token);
bool isBoolean(std::string_view token);
inline constexpr const char* boolean_words = "one of yes, no, on, off, true, false, 1, 0";

// The parameter that a name means, with or without a component; null when the type has none.
const RtParamEntry* declaredParameter(const RtNodeEntry* entry, const std::string& name);

// The code of a type by its name in any case; RV_TYPE_NONE when there is no such type.
int typeOfName(std::string_view name);
std::string nearestTypeName(std::string_view wrong); // as didYouMean

// Numbers that one value of the type takes; 0 when it is no number.
int numbersOf(int type);

} // namespace ruvell

#endif
