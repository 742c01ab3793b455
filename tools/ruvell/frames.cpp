// Frame ranges and frame numbers in names.
#include "frames.h"
#include <cstdio>
#include <cstdlib>
#include <regex>

namespace ruvell {

static const int max_frame_count = 1'000'000;

static const std::regex& placeInFolder()
{
    static const std::regex place("%(0?)([0-9]?)d");
    return place;
}

static const std::regex& placeInFile()
{
    static const std::regex place("#+|%(0?)([0-9]?)d");
    return place;
}

std::optional<std::vector<int>> parseFrames(const std::string& text)
{
    static const std::regex range("([0-9]{1,9})(?:-([0-9]{1,9})(?:x([0-9]{1,9}))?)?");
    std::smatch match;
    if (!std::regex_match(text, match, range))
        return std::nullopt;
    const int first = std::atoi(match[1].str().c_str());
    const int last = match[2].matched ? std::atoi(match[2].str().c_str()) : first;
    const int step = match[3].matched ? std::atoi(match[3].str().c_str()) : 1;
    if (last < first || step < 1 || (last - first) / step >= max_frame_count)
        return std::nullopt;

    std::vector<int> frames;
    for (int frame = first; frame <= last; frame += step)
        frames.push_back(frame);
    return frames;
}

static std::string number(int frame, int width, bool has_zeros)
{
    char text[300];
    std::snprintf(text, sizeof text, has_zeros ? "%0*d" : "%*d", width, frame);
    return text;
}

static std::string placeText(const std::smatch& place, int frame)
{
    const std::string text = place.str();
    if (text[0] == '#')
        return number(frame, static_cast<int>(std::min<size_t>(text.size(), 20)), true);
    return number(frame, std::atoi(place[2].str().c_str()), place[1].length() > 0);
}

// Puts the number into one part of a name, where the pattern matches.
static std::string filled(std::string rest, const std::regex& pattern, int frame)
{
    std::string result;
    std::smatch place;
    while (std::regex_search(rest, place, pattern)) {
        result += place.prefix().str() + placeText(place, frame);
        rest = place.suffix().str();
    }
    return result + rest;
}

static size_t folderLength(const std::string& name)
{
    const size_t slash = name.rfind('/');
    return slash == std::string::npos ? 0 : slash + 1;
}

std::string withFrame(const std::string& name, int frame)
{
    const size_t length = folderLength(name);
    return filled(name.substr(0, length), placeInFolder(), frame) +
           filled(name.substr(length), placeInFile(), frame);
}

bool hasFramePlace(const std::string& name)
{
    const size_t length = folderLength(name);
    return std::regex_search(name.substr(0, length), placeInFolder()) ||
           std::regex_search(name.substr(length), placeInFile());
}

} // namespace ruvell
