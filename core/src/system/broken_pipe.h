// Writing to a command that ended early.
#ifndef RV_SYSTEM_BROKEN_PIPE_H
#define RV_SYSTEM_BROKEN_PIPE_H

namespace rv {

// For the scope, writing to a pipe that nobody reads fails instead of ending the process. Of the
// calling thread alone.
class BrokenPipesFail {
public:
    BrokenPipesFail();
    ~BrokenPipesFail();
    BrokenPipesFail(const BrokenPipesFail&) = delete;
    BrokenPipesFail& operator=(const BrokenPipesFail&) = delete;

private:
    bool was_blocked;
};

} // namespace rv

#endif
