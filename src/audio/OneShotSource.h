#pragma once
// A stereo buffer played once, then silence: the test tone. It reports its end when the last
// frame has left the device, that is after the stream's latency has also been rendered.
#include <atomic>
#include <vector>

#include "audio/OutputEvents.h"
#include "audio/RenderSource.h"

namespace velmora {

class OneShotSource final : public RenderSource {
public:
    // Both halves of equal length, at the stream's rate. `tailFrames`: the stream's latency.
    OneShotSource(std::vector<float> left, std::vector<float> right, std::size_t tailFrames, OutputEvents& events);

    // [audio thread] Posts OutputEvents::oneShotFinished once, when the tail has been rendered.
    void render(std::size_t frames, float* left, float* right) noexcept override;
    // [any thread]
    bool finished() const { return finished_.load(std::memory_order_acquire); }

private:
    std::vector<float> left_, right_;
    std::size_t end_;       // frames until the report: buffer and tail
    std::size_t next_ = 0;  // touched by the audio thread only
    std::atomic<bool> finished_{false};
    OutputEvents& events_;
};

}  // namespace velmora
