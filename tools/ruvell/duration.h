// Spans of time as people write and read them.
#ifndef RUVELL_DURATION_H
#define RUVELL_DURATION_H

#include <chrono>
#include <optional>
#include <string>

namespace ruvell {

using Milliseconds = std::chrono::milliseconds;

// "90s", "2m", "1h30m", "500ms", "1.5h"; a plain number counts seconds. Nothing for other texts,
// for 0 and for more than 1000 days.
std::optional<Milliseconds> parseDuration(const std::string& text);

// "0:07", "12:05", "1:02:03": minutes and seconds, with hours when there are any.
std::string clockText(Milliseconds duration);

} // namespace ruvell

#endif
