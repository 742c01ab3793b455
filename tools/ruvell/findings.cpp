// The list of problems of a scene, and its two forms on the terminal.
#include "findings.h"
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace ruvell {

static constexpr int max_occurrences = 20;    // of one message
static constexpr size_t max_messages = 10000; // of different ones

void Findings::add(Finding finding)
{
    nameFile(finding.place.file);
    if (occurrences.size() >= max_messages && finding.effect == Effect::none)
        return;
    // A problem that stops the load must not drown in others of the same text.
    if (++occurrences[finding.message] > max_occurrences && has(finding.effect))
        return;
    effects.insert(finding.effect);
    kept.push_back(std::move(finding));
}

bool Findings::has(Topic topic) const
{
    return std::any_of(kept.begin(), kept.end(),
                       [topic](const Finding& finding) { return finding.topic == topic; });
}

bool Findings::has(Effect effect) const { return effects.count(effect) > 0; }

std::vector<Finding> Findings::sorted() const
{
    std::vector<Finding> result = kept;
    std::stable_sort(result.begin(), result.end(), [&](const Finding& a, const Finding& b) {
        const size_t file_a = file_order.at(a.place.file), file_b = file_order.at(b.place.file);
        return file_a != file_b ? file_a < file_b : a.place.line < b.place.line;
    });

    std::map<std::string, int> listed;
    for (size_t i = 0; i < result.size(); ++i) {
        const int total = occurrences.at(result[i].message);
        if (++listed[result[i].message] == max_occurrences && total > max_occurrences)
            result[i].hint += (result[i].hint.empty() ? "" : "; ") + std::string("and ") +
                              std::to_string(total - max_occurrences) + " more of these";
    }
    return result;
}

// Texts of a scene may hold anything; only printable characters reach the terminal.
static std::string printable(const std::string& text)
{
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F)
            result += c;
        else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02X", byte);
            result += escape;
        }
    }
    return result;
}

static const char* severityName(Weight weight)
{
    return weight == Weight::error ? "error" : "warning";
}

std::string describe(const Finding& finding)
{
    std::string text = printable(finding.place.file);
    if (finding.place.line > 0)
        text.append(":").append(std::to_string(finding.place.line));
    if (!text.empty())
        text += ": ";
    text += severityName(finding.weight);
    text.append(": ").append(printable(finding.message));
    if (!finding.hint.empty())
        text += " (" + printable(finding.hint) + ")";
    return text;
}

std::string toJson(const std::vector<Finding>& findings)
{
    using Json = nlohmann::ordered_json;
    Json list = Json::array();
    for (const Finding& finding : findings)
        list.push_back({ { "file", finding.place.file },
                         { "line", finding.place.line },
                         { "severity", severityName(finding.weight) },
                         { "message", finding.message },
                         { "hint", finding.hint } });
    return list.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace ruvell
