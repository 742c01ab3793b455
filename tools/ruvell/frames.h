// Numbered frames: "--frames 1-20x2" and the place of the number in file names.
#ifndef RUVELL_FRAMES_H
#define RUVELL_FRAMES_H

#include <optional>
#include <string>
#include <vector>

namespace ruvell {

// "7", "1-20", "1-20x2". Nothing for other texts, for a last frame before the first and for more
// than a million frames.
std::optional<std::vector<int>> parseFrames(const std::string& text);

// True when the name has a place for the number: "%d", "%4d", "%04d", or a run of '#' in the name
// of the file itself; in those of its folders '#' is a letter as others.
bool hasFramePlace(const std::string& name);

// The name with each such place filled. A run of '#' is as many digits, zeros in front.
std::string withFrame(const std::string& name, int frame);

} // namespace ruvell

#endif
