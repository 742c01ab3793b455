// How far a render is: one line on a terminal, renewed in place, and plain lines elsewhere.
#ifndef RUVELL_PROGRESS_H
#define RUVELL_PROGRESS_H

#include "duration.h"
#include <mutex>
#include <string>

namespace ruvell {

class Progress {
public:
    // Starts a new image; label stands in front of each line.
    void begin(const std::string& label);

    // Takes one progress message of the library.
    void receive(const std::string& message);

    // Renews the line on a terminal, so that its clock goes on between messages.
    void refresh();

    // Takes the line away.
    void end();

private:
    using Clock = std::chrono::steady_clock;

    std::string line() const;

    std::mutex mutex;
    std::string label;
    Clock::time_point start;
    bool is_shown = false;
    int percentage = 0;
    unsigned long long rays_per_pixel = 0;
    Milliseconds time_of_percentage{ 0 };
};

} // namespace ruvell

#endif
