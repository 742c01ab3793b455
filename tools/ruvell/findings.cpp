// The list of problems of a scene, and its two forms on the terminal.
#include "findings.h"
#include <algorithm>
#include <cstdio>

namespace ruvell {

static constexpr int max_occurrences = 20;    // of one message
static constexpr size_t max_messages = 10000; // of different ones

void Findings::add(Finding finding)
{
    if (occurrences.size() >= max_messages && finding.effect == Effect::none)
        return;
    // A problem that stops the load must not drown in others of the same text.
    if (++occurrences[finding.message] <= max_occurrences || !has(finding.effect))
        kept.push_back(std::move(finding));
}

bool Findings::has(Topic topic) const
{
    return std::any_of(kept.begin(), kept.end(),
                       [topic](const Finding& finding) { return finding.topic == topic; });
}

bool Findings::has(Effect effect) const
{
    return std::any_of(kept.begin(), kept.end(),
                       [effect](const Finding& finding) { return finding.effect == effect; });
}

std::vector<Finding> Findings::sorted() const
{
    std::map<std::string, size_t> order;
    for (const Finding& finding : kept)
        order.emplace(finding.place.file, order.size());

    std::vector<Finding> result = kept;
    std::stable_sort(result.begin(), result.end(), [&](const Finding& a, const Finding& b) {
        const size_t file_a = order[a.place.file], file_b = order[b.place.file];
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
    std::string text = printable(finding.place.file) + ":";
    if (finding.place.line > 0)
        text += std::to_string(finding.place.line) + ":";
    text += std::string(" ") + severityName(finding.weight) + ": " + printable(finding.message);
    if (!finding.hint.empty())
        text += " (" + printable(finding.hint) + ")";
    return text;
}

// ---- JSON ----

// Length of the UTF-8 sequence that begins at text[i]; 0 when there is none.
static size_t sequenceLength(const std::string& text, size_t i)
{
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned first = byte(i);
    const size_t length = first < 0x80                     ? 1
                          : first >= 0xC2 && first < 0xE0  ? 2
                          : first >= 0xE0 && first < 0xF0  ? 3
                          : first >= 0xF0 && first <= 0xF4 ? 4
                                                           : 0;
    if (length == 0 || i + length > text.size())
        return 0;
    for (size_t k = 1; k < length; ++k)
        if (byte(i + k) < 0x80 || byte(i + k) > 0xBF)
            return 0;
    if (length > 2) { // overlong forms, surrogates and what lies beyond the last character
        const unsigned second = byte(i + 1);
        if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
            (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F))
            return 0;
    }
    return length;
}

static std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const size_t length = sequenceLength(text, i);
        if (byte == '"' || byte == '\\')
            (result += '\\') += text[i++];
        else if (byte < 0x20 || length == 0) { // a byte that is no text stands for itself
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04X", byte);
            result += escape;
            ++i;
        } else {
            result.append(text, i, length);
            i += length;
        }
    }
    return result + '"';
}

std::string toJson(const std::vector<Finding>& findings)
{
    std::string text = "[";
    const char* separator = "\n";
    for (const Finding& finding : findings) {
        text += separator;
        text += "  {\"file\": " + quoted(finding.place.file) +
                ", \"line\": " + std::to_string(finding.place.line) +
                ", \"severity\": " + quoted(severityName(finding.weight)) +
                ", \"message\": " + quoted(finding.message) +
                ", \"hint\": " + quoted(finding.hint) + "}";
        separator = ",\n";
    }
    return text + "\n]\n";
}

} // namespace ruvell
