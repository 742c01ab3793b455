// text: locale-independent reading of numbers and letters.
#include "text.h"

#include <locale.h>
#include <stdlib.h>

namespace rv {

double textToDouble(const char* text)
{
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return c_locale ? strtod_l(text, nullptr, c_locale) : strtod(text, nullptr);
}

bool equalIgnoringCase(const char* a, const char* b)
{
    while (*a && lowerCase(*a) == lowerCase(*b))
        ++a, ++b;
    return lowerCase(*a) == lowerCase(*b);
}

} // namespace rv
