// Comparison of results with golden vectors, by the tolerance that each vector states. Every
// failure names the vector.
#ifndef RV_GOLDEN_H
#define RV_GOLDEN_H

#include <iosfwd>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

// Instantiated once, in golden.cpp: compiling it with every test takes longer than the tests.
extern template class nlohmann::basic_json<>;
namespace nlohmann {
void PrintTo(const json& value, std::ostream* out);
}

// The vectors of one function of a file of golden numbers under tests/data/vectors.
std::vector<nlohmann::json> goldenVectors(const std::string& area, const std::string& fn);

// A number, also one of those that JSON has no notation for.
double goldenNumber(const nlohmann::json& value);
float goldenFloat(const nlohmann::json& value);
// The numbers of nested lists, in order.
std::vector<double> goldenNumbers(const nlohmann::json& value);
std::vector<float> goldenFloats(const nlohmann::json& value);
std::string goldenId(const nlohmann::json& vector);

// One output of a vector that is compared exactly: text, count, truth or null.
void expectGolden(const nlohmann::json& vector, const char* key, const nlohmann::json& got);
// One output of a vector that is compared number by number within its tolerance.
void expectGoldenNumbers(const nlohmann::json& vector, const char* key,
                         const std::vector<float>& got);

#endif
