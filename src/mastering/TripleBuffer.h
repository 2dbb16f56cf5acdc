#pragma once
// One value handed whole from one writer thread to one reader thread, neither ever waiting:
// the writer fills a slot of its own and publishes it; the reader takes the latest published
// slot when there is one and keeps reading its own otherwise. Three preallocated slots, so
// nothing is allocated or freed after construction and a slot is never written while read.
//
//   TripleBuffer<Stats> shared;
//   shared.back() = stats; shared.publish();          // writer thread
//   const Stats& latest = shared.read();              // reader thread
#include <array>
#include <atomic>

namespace velmora {

template <typename T>
class TripleBuffer {
public:
    // [writer thread] The slot to fill; what it held before is stale.
    T& back() noexcept { return slots_[back_]; }
    // [writer thread] Makes back() the latest value and hands the writer another slot.
    void publish() noexcept { back_ = middle_.exchange(back_ | fresh, std::memory_order_acq_rel) & index; }

    // [reader thread] The latest published value, or the one read last when nothing newer came.
    // Stays untouched by the writer until the next read().
    const T& read() noexcept {
        if (middle_.load(std::memory_order_relaxed) & fresh)
            front_ = middle_.exchange(front_, std::memory_order_acq_rel) & index;
        return slots_[front_];
    }

    // [either thread, while the other one does not run] Every slot set to `value`.
    void reset(const T& value) {
        slots_.fill(value);
        middle_.store(1, std::memory_order_release);
        back_ = 0;
        front_ = 2;
    }

private:
    static constexpr unsigned index = 3, fresh = 4;
    std::array<T, 3> slots_{};
    std::atomic<unsigned> middle_{1};  // slot index, and `fresh` while the reader has not taken it
    unsigned back_ = 0;                // the writer's own
    unsigned front_ = 2;               // the reader's own
};

}  // namespace velmora
