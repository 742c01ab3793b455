// The progress line.
#include "progress.h"
#include "terminal.h"
#include <algorithm>
#include <cstdio>

namespace ruvell {

void Progress::begin(const std::string& image_label)
{
    const std::lock_guard guard(mutex);
    label = image_label;
    start = Clock::now();
    percentage = 0;
    rays_per_pixel = 0;
    time_of_percentage = Milliseconds(0);
    is_shown = true;
}

static Milliseconds since(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start);
}

// The time left follows from the time that the part done has taken; what has passed since the last
// message is already off it.
std::string Progress::line() const
{
    const Milliseconds elapsed = since(start);
    std::string left = "-:--";
    if (percentage > 0) {
        const Milliseconds total = time_of_percentage * 100 / percentage;
        left = clockText(std::max(total - elapsed, Milliseconds(0)));
    }
    char text[128];
    std::snprintf(text, sizeof text, "%3d%%  %llu rays/pixel  %s elapsed  %s left", percentage,
                  rays_per_pixel, clockText(elapsed).c_str(), left.c_str());
    return label + text;
}

void Progress::receive(const std::string& message)
{
    const std::lock_guard guard(mutex);
    int done = 0;
    unsigned long long rays = 0;
    if (!is_shown || std::sscanf(message.c_str(), " %d%% done - %llu", &done, &rays) != 2)
        return;
    percentage = done;
    rays_per_pixel = rays;
    time_of_percentage = since(start);
    if (hasTerminal())
        showStatus(line());
    else
        writeLine(line());
}

void Progress::refresh()
{
    const std::lock_guard guard(mutex);
    if (is_shown && hasTerminal())
        showStatus(line());
}

void Progress::end()
{
    const std::lock_guard guard(mutex);
    is_shown = false;
    if (hasTerminal())
        clearStatus();
}

} // namespace ruvell
