#pragma once
// Sample-rate conversion of a whole master, a chunk at a time: one very-high-quality converter
// per channel, each on a worker, while the caller writes out the chunk converted before.
#include <cstddef>
#include <optional>
#include <vector>

#include "measurement/WorkerPool.h"

struct soxr;

namespace velmora {

class RateConverter {
public:
    // Chunks given to start() hold at most `chunkFrames` frames.
    RateConverter(std::size_t channels, double inputRate, double outputRate, std::size_t chunkFrames);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;
    bool valid() const { return valid_; }

    // Converts `frames` frames from each input pointer in the background; 0 frames drains what
    // the converters still hold. The pointers must stay valid until finish().
    void start(const float* const* input, std::size_t frames);
    // Waits for the last start(); the frames it produced (equal for every channel), or nothing
    // when a converter failed.
    std::optional<std::size_t> finish();
    // Channel pointers to what the last finish() reported; valid until the start() after next.
    const float* const* output() const { return outputs_[finished_].data(); }

private:
    void convert(std::size_t channel);

    std::vector<soxr*> converters_;
    std::vector<float> storage_[2];
    std::vector<float*> outputs_[2];
    std::size_t capacity_ = 0;
    const float* const* input_ = nullptr;
    std::size_t inputFrames_ = 0;
    std::vector<std::size_t> produced_;
    std::vector<char> failed_;
    int current_ = 0, finished_ = 0;
    bool valid_ = true;
    WorkerPool pool_;
};

}  // namespace velmora
