#include "audio/OneShotSource.h"

#include <algorithm>

namespace velmora {

OneShotSource::OneShotSource(std::vector<float> left, std::vector<float> right, std::size_t tailFrames,
                             OutputEvents& events)
    : left_(std::move(left)), right_(std::move(right)), events_(events) {
    right_.resize(left_.size(), 0.0f);
    end_ = left_.size() + tailFrames;
}

void OneShotSource::render(std::size_t frames, float* left, float* right) noexcept {
    const std::size_t length = left_.size();
    const std::size_t copied = next_ < length ? std::min(frames, length - next_) : 0;
    if (copied) {
        std::copy_n(left_.data() + next_, copied, left);
        std::copy_n(right_.data() + next_, copied, right);
    }
    std::fill(left + copied, left + frames, 0.0f);
    std::fill(right + copied, right + frames, 0.0f);
    if (next_ >= end_) return;
    next_ = std::min(next_ + frames, end_);
    if (next_ == end_) {
        finished_.store(true, std::memory_order_release);
        events_.post(OutputEvents::oneShotFinished);
    }
}

}  // namespace velmora
