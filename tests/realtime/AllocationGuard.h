#pragma once
// Counts the heap calls the current thread makes while armed. This test binary replaces the
// global operator new and delete (every form) and malloc, calloc, realloc, free and the aligned
// allocators, so a call that reaches the heap by any of them is seen; it must be built without
// sanitizers, which replace the same functions.
//
//   AllocationGuard armed;
//   streamer.render(64, left, right);
//   EXPECT_EQ(armed.allocations(), 0u);
#include <cstddef>

namespace velmora::test {

// Arms the calling thread for its lifetime; other threads are never counted.
class AllocationGuard {
public:
    AllocationGuard() noexcept;
    ~AllocationGuard();
    AllocationGuard(const AllocationGuard&) = delete;
    AllocationGuard& operator=(const AllocationGuard&) = delete;

    // Since this guard was armed: blocks obtained (new, malloc, calloc, realloc, the aligned
    // forms) and blocks given back (delete, free, realloc).
    std::size_t allocations() const noexcept;
    std::size_t releases() const noexcept;

private:
    bool wasArmed_;
    std::size_t allocationsAtStart_, releasesAtStart_;
};

}  // namespace velmora::test
