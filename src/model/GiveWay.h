#pragma once
// Background work gives way to the interface and to listening: on a machine with few cores a
// batch, or the A/B match reading a film, would otherwise hold the main thread off its redraws
// for tens of milliseconds. The threads it starts (decoding, per-channel work, reports) inherit
// the lower priority.
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace velmora {

inline constexpr int backgroundNiceness = 10;

// Lowers the calling thread: batch scheduling, niceness 10.
inline void giveWayToTheInterface() {
    const sched_param batch{};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &batch);
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), backgroundNiceness);
}

}  // namespace velmora
