#pragma once
// A request to stop, raised by SIGINT or SIGTERM once the command line has asked for it: the
// writer ends the file it is writing (leaving nothing behind) and the jobs start no other, so the
// command can say what it did and exit with 128 + the signal.
#include <atomic>

namespace velmora {

// Replaces the default end of the process on SIGINT and SIGTERM by a request to stop. A second
// signal of the same kind ends the process at once.
void stopOnInterruptSignals();
// The signal that asked to stop, 0 while none has. Safe from any thread.
int interruptSignal() noexcept;
inline bool interruptRequested() noexcept { return interruptSignal() != 0; }

}  // namespace velmora
