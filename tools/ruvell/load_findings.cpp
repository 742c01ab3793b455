// Turns messages of the library into findings.
#include "load_findings.h"
#include <map>
#include <set>

namespace ruvell {

// What the scan says too, and better.
static constexpr struct {
    const char* text;
    Topic topic;
} known_messages[] = {
    { "is not installed", Topic::unknown_type },
    { "is not installed", Topic::braces },
    { ": unknown parameter type", Topic::unknown_parameter },
    { ": unknown parameter type", Topic::braces },
    { "unknown boolean token", Topic::bad_boolean },
    { "invalid enumerated value", Topic::bad_enumeration },
    { "wrong token", Topic::braces },
    { "unexpected end-of-file", Topic::braces },
    { "tag not found", Topic::undefined_name },
    { "could not be be resolved", Topic::undefined_name },
    { "cannot link a NULL node", Topic::undefined_name },
    { "name already in use", Topic::duplicate_name },
    { "cannot declare", Topic::declaration },
    { "failed to add user-parameter", Topic::declaration },
    { "poorly typed user-define", Topic::declaration },
    { "missing array type", Topic::declaration },
    { "parameter name contains invalid characters", Topic::declaration },
    { "array with zero motion keys", Topic::array },
    { "not yet supported", Topic::array },
    { "arrays are nested deeper", Topic::array },
    { "could not set ARRAY parameter", Topic::array },
    { "string longer than", Topic::text },
    { "nested deeper than", Topic::nesting },
    { "an address, which only a program can give", Topic::address },
    { ": No such file or directory", Topic::missing_file },
    { ": Is a directory", Topic::missing_file },
    { ": Permission denied", Topic::missing_file },
};

static bool isKnown(const LoadMessage& message, const Findings& findings)
{
    for (const auto& row : known_messages)
        if (message.text.find(row.text) != std::string::npos && findings.has(row.topic))
            return true;
    // The outer file only says that something in it failed.
    return message.text.starts_with("error loading ") && !findings.empty();
}

namespace {

// Where the library was when it said something.
struct Spot {
    int load, segment, line;
    auto operator<=>(const Spot&) const = default;
};

struct Candidate {
    Place place;
    std::string node, parameter;
};

using Candidates = std::map<Spot, std::vector<Candidate>>;

} // namespace

static Spot spotOf(const LoadMessage& message)
{
    return { message.load, message.segment, message.counted_line };
}

static Candidates findCandidates(const std::vector<const LoadMessage*>& messages,
                                 const std::function<void(ScanOptions, Findings&)>& rescan)
{
    Candidates candidates;
    for (const LoadMessage* message : messages)
        if (message->counted_line > 0)
            candidates[spotOf(*message)];
    if (candidates.empty())
        return candidates;
    ScanOptions options;
    options.on_parameter = [&](const ParameterSpan& span) {
        const Spot spot{ static_cast<int>(span.load), span.segment, span.reader_line + 1 };
        if (const auto found = candidates.find(spot); found != candidates.end())
            found->second.push_back({ span.place, span.node, span.parameter });
    };
    Findings ignored;
    rescan(options, ignored);
    return candidates;
}

// How well a message fits a parameter that ended on its line.
static int fit(const std::string& text, const Candidate& candidate)
{
    const auto names = [&](const std::string& name) {
        return !name.empty() && text.find(name) != std::string::npos;
    };
    return 2 * names(candidate.parameter) + names(candidate.node);
}

static Place placeOf(const LoadMessage& message, const Candidates& candidates)
{
    const auto found = candidates.find(spotOf(message));
    const Candidate* best = nullptr;
    if (found != candidates.end())
        for (const Candidate& candidate : found->second)
            if (!best || fit(message.text, candidate) >= fit(message.text, *best))
                best = &candidate;
    return best ? best->place : Place{ message.file, message.line };
}

void addLoadFindings(const std::vector<LoadMessage>& messages, Findings& findings,
                     const std::function<void(ScanOptions, Findings&)>& rescan)
{
    std::vector<const LoadMessage*> news;
    for (const LoadMessage& message : messages)
        if (message.severity >= severity_warning && !isKnown(message, findings))
            news.push_back(&message);
    const Candidates candidates = findCandidates(news, rescan);
    std::set<std::string> said;
    for (const LoadMessage* message : news) {
        const Weight weight =
            message->severity == severity_warning ? Weight::warning : Weight::error;
        Finding finding{ placeOf(*message, candidates), weight, message->text, "" };
        if (said.insert(describe(finding)).second)
            findings.add(std::move(finding));
    }
}

} // namespace ruvell
