#pragma once
// The render source a real-time callback pulls from, exchanged without a lock: the callback
// never waits, and the control thread learns when the callback is done with the old source, so
// the source can be released right after.
#include <atomic>
#include <chrono>
#include <thread>

#include "audio/RenderSource.h"

namespace velmora {

class SourceSlot {
public:
    // [audio thread] The source for this block, or nullptr for silence; release() after using it.
    RenderSource* acquire() noexcept {
        busy_.store(true);
        return source_.load();
    }
    void release() noexcept { busy_.store(false, std::memory_order_release); }

    // [control thread] On return the callback no longer touches the previous source. Waits for
    // the block in progress, if any: a fraction of a block's duration.
    void exchange(RenderSource* source) {
        // Sequentially consistent on both sides: if the callback's busy flag is not seen here,
        // its load of the source comes after this store and sees the new one.
        source_.store(source);
        while (busy_.load()) std::this_thread::sleep_for(std::chrono::microseconds(50));
    }

private:
    std::atomic<RenderSource*> source_{nullptr};
    std::atomic<bool> busy_{false};
};

}  // namespace velmora
