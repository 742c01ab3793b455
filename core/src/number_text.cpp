// number_text: floats with eight significant digits, as scene files hold them.
//
// A float is an integer times a power of two. Within a range that holds nearly every number of a
// scene, the digits come from exact 64-bit arithmetic; whatever lies outside is left to the
// standard library.
#include "number_text.h"

#include <bit>
#include <math.h>
#include <stdint.h>
#include <string.h>

namespace rv {

static constexpr int digit_count = 8; // significant

static const uint64_t integer_powers[] = { 1,         10,         100,         1000,
                                           10000,     100000,     1000000,     10000000,
                                           100000000, 1000000000, 10000000000, 100000000000 };
static constexpr int min_exponent = -4; // below it the text has an exponent
static const double powers[] = {
    1e-4, 1e-3, 1e-2, 1e-1, 1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8
};

// floor(log10) of a number whose logarithm to base two has this floor.
static int decimalExponent(float magnitude, int binary_exponent)
{
    const int estimate = (binary_exponent * 1233) >> 12; // times log10(2); at most one too low
    const int next = estimate + 1;
    return next >= min_exponent && double(magnitude) >= powers[next - min_exponent] ? next
                                                                                    : estimate;
}

// mantissa * 10^scale * 2^exponent to the nearest integer, ties to even. Exact: the product stays
// below 2^61.
static uint32_t scaled(uint32_t mantissa, int scale, int exponent)
{
    const uint64_t product = mantissa * integer_powers[scale];
    if (exponent >= 0)
        return uint32_t(product << exponent);
    const uint64_t whole = product >> -exponent;
    const uint64_t rest = product - (whole << -exponent), half = uint64_t{ 1 } << (-exponent - 1);
    return uint32_t(whole + (rest > half || (rest == half && (whole & 1))));
}

static void writeDigits(char (&text)[digit_count], uint32_t digits)
{
    static const struct Pairs {
        char text[200];
        constexpr Pairs() : text()
        {
            for (int i = 0; i < 100; ++i) {
                text[2 * i] = char('0' + i / 10);
                text[2 * i + 1] = char('0' + i % 10);
            }
        }
    } pairs;
    for (int i = digit_count - 2; i >= 0; i -= 2, digits /= 100)
        memcpy(text + i, pairs.text + 2 * (digits % 100), 2);
}

// Digits d.ddddddd times 10^exponent, in [-4, 7], without trailing zeros.
static char* placePoint(char* out, const char (&digits)[digit_count], int exponent)
{
    int count = digit_count;
    while (digits[count - 1] == '0')
        --count;
    if (exponent < 0) {
        memcpy(out, "0.000", 5);
        out += 1 - exponent;
        memcpy(out, digits, digit_count);
        return out + count;
    }
    const int whole = exponent + 1;
    memcpy(out, digits, digit_count);
    if (count <= whole)
        return out + whole;
    out[whole] = '.';
    memcpy(out + whole + 1, digits + whole, size_t(digit_count - whole));
    return out + count + 1;
}

static char* floatToTextSlowly(char* out, float value)
{
    return std::to_chars(out, out + number_text_size, double(value), std::chars_format::general,
                         digit_count)
        .ptr;
}

char* floatToText(char* out, float value)
{
    const float magnitude = fabsf(value);
    // The float next to 1e-4 is a little less, so it has an exponent.
    if (!(magnitude > 1e-4f && magnitude < 1e8f))
        return floatToTextSlowly(out, value);
    const uint32_t bits = std::bit_cast<uint32_t>(magnitude);
    const uint32_t mantissa = (bits & 0x7fffff) | 0x800000;
    const int binary_exponent = int(bits >> 23) - 127;
    int exponent = decimalExponent(magnitude, binary_exponent);
    uint32_t digits = scaled(mantissa, digit_count - 1 - exponent, binary_exponent - 23);
    if (digits == integer_powers[digit_count]) { // rounded up to one digit more
        digits /= 10;
        ++exponent;
    }
    if (value < 0)
        *out++ = '-';
    char text[digit_count];
    writeDigits(text, digits);
    return placePoint(out, text, exponent);
}

char* floatOrIntegerToText(char* out, float value)
{
    const double x = value, below = floor(x), above = ceil(x);
    const double nearest = x - below < above - x ? below : above;
    if (!(fabs(x - nearest) < 1e-9))
        return floatToText(out, value);
    if (fabs(nearest) < 2147483648.0)
        return integerToText(out, int(nearest));
    return std::to_chars(out, out + number_text_size, nearest, std::chars_format::fixed, 0).ptr;
}

} // namespace rv
