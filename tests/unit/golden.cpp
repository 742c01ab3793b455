// Golden vectors: reading and comparing them.
#include "golden.h"

#include "test_data.h"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <ostream>

template class nlohmann::basic_json<>;

void nlohmann::PrintTo(const json& value, std::ostream* out) { *out << value; }

std::vector<nlohmann::json> goldenVectors(const std::string& area, const std::string& fn)
{
    static std::map<std::string, nlohmann::json> files;
    nlohmann::json& file = files[area];
    if (file.is_null())
        std::ifstream(std::string(testData()) + "/vectors/" + area + ".json") >> file;
    std::vector<nlohmann::json> found;
    for (const nlohmann::json& v : file.at("vectors"))
        if (v.at("fn") == fn)
            found.push_back(v);
    EXPECT_FALSE(found.empty()) << "no vectors for " << fn;
    return found;
}

double goldenNumber(const nlohmann::json& value)
{
    if (!value.is_string())
        return value.get<double>();
    const std::string text = value.get<std::string>();
    const double infinity = std::numeric_limits<double>::infinity();
    return text == "inf" ? infinity : text == "-inf" ? -infinity : std::nan("");
}

float goldenFloat(const nlohmann::json& value) { return static_cast<float>(goldenNumber(value)); }

std::vector<double> goldenNumbers(const nlohmann::json& value)
{
    if (!value.is_array())
        return { goldenNumber(value) };
    std::vector<double> all;
    for (const nlohmann::json& part : value)
        for (double number : goldenNumbers(part))
            all.push_back(number);
    return all;
}

std::vector<float> goldenFloats(const nlohmann::json& value)
{
    const std::vector<double> numbers = goldenNumbers(value);
    return std::vector<float>(numbers.begin(), numbers.end());
}

std::string goldenId(const nlohmann::json& vector) { return vector.at("id").get<std::string>(); }

void expectGolden(const nlohmann::json& vector, const char* key, const nlohmann::json& got)
{
    EXPECT_EQ(vector.at("out").at(key), got) << goldenId(vector) << " " << key;
}

void expectGoldenNumbers(const nlohmann::json& vector, const char* key,
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
