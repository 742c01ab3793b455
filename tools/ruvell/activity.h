// Tells on a terminal what takes long and for how long already; elsewhere nothing.
#ifndef RUVELL_ACTIVITY_H
#define RUVELL_ACTIVITY_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace ruvell {

// Shows a status line while it lives, once that has lasted a moment.
class Activity {
public:
    Activity(const std::string& what, bool is_quiet);
    ~Activity();
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

private:
    void run();

    const std::string what;
    std::mutex mutex;
    std::condition_variable ending;
    bool has_ended = false; // guarded by mutex

    std::thread thread;
};

} // namespace ruvell

#endif
