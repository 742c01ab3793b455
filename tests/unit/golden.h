// Comparison of results with golden vectors, by the tolerance that each vector states. Every
// failure names the vector.
#ifndef RV_GOLDEN_H
#define RV_GOLDEN_H

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// A number, also one of those that JSON has no notation for.
inline double goldenNumber(const nlohmann::json& value)
{
    if (!value.is_string())
        return value.get<double>();
    const std::string text = value.get<std::string>();
    const double infinity = std::numeric_limits<double>::infinity();
    return text == "inf" ? infinity : text == "-inf" ? -infinity : std::nan("");
}

inline float goldenFloat(const nlohmann::json& value)
{
    return static_cast<float>(goldenNumber(value));
}

// The numbers of nested lists, in order.
inline std::vector<double> goldenNumbers(const nlohmann::json& value)
{
    if (!value.is_array())
        return { goldenNumber(value) };
    std::vector<double> all;
    for (const nlohmann::json& part : value)
        for (double number : goldenNumbers(part))
            all.push_back(number);
    return all;
}

inline std::vector<float> goldenFloats(const nlohmann::json& value)
{
    const std::vector<double> numbers = goldenNumbers(value);
    return std::vector<float>(numbers.begin(), numbers.end());
}

inline std::string goldenId(const nlohmann::json& vector)
{
    return vector.at("id").get<std::string>();
}

// One output of a vector that is compared exactly: text, count, truth or null.
inline void expectGolden(const nlohmann::json& vector, const char* key, const nlohmann::json& got)
{
    EXPECT_EQ(vector.at("out").at(key), got) << goldenId(vector) << " " << key;
}

// One output of a vector that is compared number by number within its tolerance.
inline void expectGoldenNumbers(const nlohmann::json& vector, const char* key,
                                const std::vector<float>& got)
{
    const std::vector<double> want = goldenNumbers(vector.at("out").at(key));
    const nlohmann::json& tolerance = vector.at("tol").at(key);
    const double abs = tolerance.is_object() ? tolerance.at("abs").get<double>() : 0;
    const double rel = tolerance.is_object() ? tolerance.at("rel").get<double>() : 0;
    ASSERT_EQ(want.size(), got.size()) << goldenId(vector) << " " << key;
    for (size_t i = 0; i < want.size(); ++i) {
        const double value = got[i];
        const bool same = std::isnan(want[i]) ? std::isnan(value) : want[i] == value;
        EXPECT_TRUE(same || std::fabs(value - want[i]) <= abs + rel * std::fabs(want[i]))
            << goldenId(vector) << " " << key << "[" << i << "]: " << value << ", not " << want[i];
    }
}

#endif
