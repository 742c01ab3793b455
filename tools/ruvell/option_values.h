// What values of options may look like. The checks give the empty text for good ones, otherwise
// what is wrong.
#ifndef RUVELL_OPTION_VALUES_H
#define RUVELL_OPTION_VALUES_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ruvell {

// A whole number within bounds, both included. Nothing for other texts.
std::optional<int64_t> parseWhole(const std::string& text, int64_t min, int64_t max);

// For CLI::Option::check().
std::function<std::string(const std::string&)> wholeNumber(int64_t min, int64_t max);

// Names of files and nodes: anything but the empty text.
std::string checkName(const std::string& text);

// Bytes: "500M", "4G", "1048576"; units of 1024. Nothing for other texts and for less than 32 MB,
// which the command needs for itself.
std::optional<uint64_t> parseMemory(const std::string& text);
std::string checkMemory(const std::string& text);

std::string checkDuration(const std::string& text);

// An option that may be given several times, each time with one value, which is checked.
CLI::Option* addRepeatable(CLI::App& app, const std::string& names,
                           std::vector<std::string>& values, const std::string& description,
                           const std::string& type_name,
                           const CLI::Validator& check = CLI::Validator());

} // namespace ruvell

#endif
