// Work in numbered pieces that the threads which wait for its result do together.
#ifndef RV_JOINT_WORK_H
#define RV_JOINT_WORK_H

#include "function_ref.h"

#include <atomic>

namespace rv {

// Threads bring their own numbers, by which a piece finds what belongs to a thread. Pieces must not
// throw, and not depend on who does them.
class JointWork {
public:
    // False gives the whole work up: no further piece is begun.
    using Piece = FunctionRef<bool(int thread, int index)>;

    // From the first to the second, threads that join wait for work to begin, and for more when it
    // is done. For the thread that is going to lead it, once or several times.
    void announce() { enter(announced); }
    void cancel() { enter(idle); }

    // Does the pieces 0 to count - 1 along with the threads that join, and returns when all are
    // done, or false when one of them gave up. For one thread at a time.
    bool lead(int thread, int count, const Piece& piece);
    // Helps the thread that leads, for as long as work is announced or under way.
    void join(int thread);

private:
    enum State : unsigned { idle, announced, open };
    static State stateOf(unsigned phase) { return State(phase & 3); }
    void enter(State next_state);
    void work(int thread);

    const Piece* piece = nullptr; // with count: fixed while the work is open or has helpers
    int count = 0;
    std::atomic<int> next = 0; // piece that nobody has begun
    std::atomic<bool> is_given_up = false;
    // The State in the last two bits, and how often it was entered, so that who waits for its end
    // does not take a later one for the same. Changed by the leader.
    std::atomic<unsigned> phase = idle;
    std::atomic<int> helpers = 0;
};

// Announces work until it is done, or until the end of a scope when it never begins.
class AnnouncedWork {
public:
    explicit AnnouncedWork(JointWork* joint_work) : work(joint_work) { work->announce(); }
    ~AnnouncedWork() { work->cancel(); }
    AnnouncedWork(const AnnouncedWork&) = delete;
    AnnouncedWork& operator=(const AnnouncedWork&) = delete;

private:
    JointWork* work;
};

} // namespace rv

#endif
