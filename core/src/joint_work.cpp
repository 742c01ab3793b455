// joint_work: work that the threads which wait for its result do together.
#include "joint_work.h"

namespace rv {

void JointWork::work(int thread)
{
    for (int i; (i = next.fetch_add(1)) < count;)
        (*piece)(thread, i);
}

// The leader closes the work before it looks for helpers, and a helper announces itself before it
// looks whether the work is open: so either the leader waits for the helper or the helper leaves.
void JointWork::lead(int thread, int count_, const Piece& piece_)
{
    piece = &piece_;
    count = count_;
    next = 0;
    is_open = true;
    work(thread);
    is_open = false;
    for (int present; (present = helpers) != 0;)
        helpers.wait(present);
}

void JointWork::join(int thread)
{
    ++helpers;
    if (is_open)
        work(thread);
    if (--helpers == 0)
        helpers.notify_one();
}

} // namespace rv
