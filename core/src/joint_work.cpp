// joint_work: work that the threads which wait for its result do together.
#include "joint_work.h"

namespace rv {

void JointWork::enter(State next_state)
{
    phase = ((phase | 3) + 1) | next_state;
    phase.notify_all();
}

void JointWork::work(int thread)
{
    for (int i; !is_given_up && (i = next.fetch_add(1)) < count;)
        if (!(*piece)(thread, i))
            is_given_up = true;
}

// The leader closes the work before it looks for helpers, and a helper counts itself before it
// looks whether the work is open: so either the leader waits for the helper or the helper leaves.
bool JointWork::lead(int thread, int count_, const Piece& piece_)
{
    const State before = stateOf(phase);
    piece = &piece_;
    count = count_;
    next = 0;
    is_given_up = false;
    enter(open);
    work(thread);
    enter(before);
    for (int present; (present = helpers) != 0;)
        helpers.wait(present);
    return !is_given_up;
}

void JointWork::join(int thread)
{
    for (unsigned seen; stateOf(seen = phase) != idle; phase.wait(seen)) {
        if (stateOf(seen) != open)
            continue;
        ++helpers;
        if (phase == seen)
            work(thread);
        if (--helpers == 0)
            helpers.notify_one();
    }
}

} // namespace rv
