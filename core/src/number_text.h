// Numbers as text, independent of the process's locale and much faster than printf().
#ifndef RV_NUMBER_TEXT_H
#define RV_NUMBER_TEXT_H

#include <charconv>

namespace rv {

// Room for any number that the functions below write.
inline constexpr int number_text_size = 48;

// They write the text, without a terminating zero, and return its end.

// As printf() with "%.8g".
char* floatToText(char* out, float value);

// As floatToText(), but a value within 1e-9 of an integer becomes that integer. Must be finite.
char* floatOrIntegerToText(char* out, float value);

// As printf() with "%d" or "%u".
template <class Integer> char* integerToText(char* out, Integer value)
{
    return std::to_chars(out, out + number_text_size, value).ptr;
}

} // namespace rv

#endif
