// Work in numbered pieces that the threads which wait for its result do together.
#ifndef RV_JOINT_WORK_H
#define RV_JOINT_WORK_H

#include <atomic>
#include <functional>

namespace rv {

// Threads bring their own numbers, by which a piece finds what belongs to a thread. Pieces must not
// throw, and not depend on who does them.
class JointWork {
public:
    using Piece = std::function<void(int thread, int index)>;

    // Does the pieces 0 to count - 1 along with the threads that join, and returns when all are
    // done. For one thread at a time.
    void lead(int thread, int count, const Piece& piece);
    // Helps the thread that leads, if there is one, until no piece is left to begin.
    void join(int thread);

private:
    void work(int thread);

    const Piece* piece = nullptr; // with count: fixed while the work is open or has helpers
    int count = 0;
    std::atomic<int> next = 0; // piece that nobody has begun
    std::atomic<bool> is_open = false;
    std::atomic<int> helpers = 0;
};

} // namespace rv

#endif
