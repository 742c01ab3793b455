// What each render thread owns: scratch pools and a message bank.
#ifndef RV_THREAD_SLOT_H
#define RV_THREAD_SLOT_H

struct RtMemPool;
struct RtMessageBank;

struct RtThreadSlot {
    RtMemPool* shading_pool; // until the end of the camera sample
    RtMemPool* pools[2];     // scratch of tracing and integrators
    RtMessageBank* messages;
};

namespace rv {

inline constexpr unsigned thread_pool_block = 0x80000;

} // namespace rv

#endif
