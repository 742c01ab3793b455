// Numbers as text.
#include "number_text.h"

#include <bit>
#include <gtest/gtest.h>
#include <math.h>
#include <random>
#include <stdio.h>
#include <string.h>
#include <string>

static std::string textOf(float value)
{
    char text[rv::number_text_size];
    return { text, rv::floatToText(text, value) };
}

static std::string elementTextOf(float value)
{
    char text[rv::number_text_size];
    return { text, rv::floatOrIntegerToText(text, value) };
}

// Whether the text is that of printf().
static bool isAsPrinted(float value)
{
    char printed[64];
    const int length = snprintf(printed, sizeof printed, "%.8g", double(value));
    char text[rv::number_text_size];
    const char* const end = rv::floatToText(text, value);
    return end - text == length && !memcmp(text, printed, size_t(length));
}

TEST(NumberText, floats_of_every_size_are_as_printf_prints_them)
{
    std::mt19937 random(1);
    for (int i = 0; i < 1500000; ++i) {
        const float value = std::bit_cast<float>(uint32_t(random()));
        ASSERT_TRUE(isAsPrinted(value)) << textOf(value);
    }
}

TEST(NumberText, floats_of_a_scene_are_as_printf_prints_them)
{
    std::mt19937 random(2);
    const uint32_t least = std::bit_cast<uint32_t>(5e-5f), most = std::bit_cast<uint32_t>(2e8f);
    std::uniform_int_distribution<uint32_t> bits(least, most);
    for (int i = 0; i < 500000; ++i) {
        const float value = std::bit_cast<float>(bits(random));
        ASSERT_TRUE(isAsPrinted(value) && isAsPrinted(-value)) << textOf(value);
        const float decimal = float(int(random() % 2000000)) / 10000 - 100;
        ASSERT_TRUE(isAsPrinted(decimal)) << textOf(decimal);
    }
}

TEST(NumberText, floats_around_powers_of_ten_are_as_printf_prints_them)
{
    for (double power = 1e-45; power < 1e39; power *= 10)
        for (int step = -300; step < 300; ++step) {
            const float value =
                std::bit_cast<float>(std::bit_cast<uint32_t>(float(power)) + uint32_t(step));
            ASSERT_TRUE(isAsPrinted(value) && isAsPrinted(-value)) << textOf(value);
        }
}

TEST(NumberText, a_tie_goes_to_the_even_digit)
{
    EXPECT_EQ(textOf(1234567.5f), "1234567.5");
    EXPECT_EQ(textOf(0.000244140625f), "0.00024414062"); // 2^-12, exactly between
    EXPECT_EQ(textOf(0.000732421875f), "0.00073242188");
    EXPECT_TRUE(isAsPrinted(0.000244140625f) && isAsPrinted(0.000732421875f));
}

TEST(NumberText, values_without_digits_have_names)
{
    for (float value : { INFINITY, -INFINITY, 0.0f, -0.0f, NAN, -NAN })
        EXPECT_TRUE(isAsPrinted(value)) << textOf(value);
    EXPECT_EQ(textOf(-0.0f), "-0");
}

TEST(NumberText, elements_next_to_an_integer_become_it)
{
    static const struct {
        float value;
        const char* text;
    } rows[] = {
        { 0, "0" },
        { -0.0f, "0" },
        { 9.9e-10f, "0" },
        { -9.9e-10f, "0" },
        { 1.1e-9f, "1.1e-09" },
        { 3, "3" },
        { -3, "-3" },
        { 0.99999994f, "0.99999994" },
        { 2.5f, "2.5" },
        { 16777216.0f, "16777216" },
        { 123456789.0f, "123456792" }, // more digits than the text of a fraction has
        { 2147483648.0f, "2147483648" },
        { -2147483648.0f, "-2147483648" },
        { 1e20f, "100000002004087734272" },
        { -3.40282347e38f, "-340282346638528859811704183484516925440" },
    };
    for (const auto& row : rows)
        EXPECT_EQ(elementTextOf(row.value), row.text);
}

TEST(NumberText, integers_are_as_printf_prints_them)
{
    char text[rv::number_text_size];
    EXPECT_EQ(std::string(text, rv::integerToText(text, -2147483647 - 1)), "-2147483648");
    EXPECT_EQ(std::string(text, rv::integerToText(text, 4294967295u)), "4294967295");
}
