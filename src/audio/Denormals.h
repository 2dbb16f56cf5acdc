#pragma once
// Filter tails decaying towards zero become denormal numbers, which cost a hundred times a
// normal operation on x86: a real-time callback that meets them misses its deadline. Flushing
// them to zero is inaudible (they sit below -750 dBFS).
#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace velmora {

// [audio thread] Flushes denormals for the scope of one callback, then gives the thread back
// its own mode.
class ScopedDenormalFlush {
public:
#if defined(__SSE__)
    ScopedDenormalFlush() noexcept : saved_(_mm_getcsr()) { _mm_setcsr(saved_ | flushZero | denormalsAreZero); }
    ~ScopedDenormalFlush() { _mm_setcsr(saved_); }

private:
    static constexpr unsigned flushZero = 0x8000, denormalsAreZero = 0x0040;  // MXCSR FTZ and DAZ
    unsigned saved_;
#elif defined(__aarch64__)
    ScopedDenormalFlush() noexcept {
        __asm__ __volatile__("mrs %0, fpcr" : "=r"(saved_));
        __asm__ __volatile__("msr fpcr, %0" : : "r"(saved_ | flushZero));
    }
    ~ScopedDenormalFlush() { __asm__ __volatile__("msr fpcr, %0" : : "r"(saved_)); }

private:
    static constexpr unsigned long flushZero = 1ul << 24;  // FPCR.FZ
    unsigned long saved_;
#else
    ScopedDenormalFlush() noexcept = default;
#endif
    ScopedDenormalFlush(const ScopedDenormalFlush&) = delete;
    ScopedDenormalFlush& operator=(const ScopedDenormalFlush&) = delete;
};

}  // namespace velmora
