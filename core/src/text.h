// Numbers and letters of texts, independent of the process's locale.
#ifndef RV_TEXT_H
#define RV_TEXT_H

namespace rv {

// As atof() in the "C" locale.
double textToDouble(const char* text);

// ASCII only.
inline char lowerCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
inline char upperCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

// Equal, letter case aside.
bool equalIgnoringCase(const char* a, const char* b);

} // namespace rv

#endif
