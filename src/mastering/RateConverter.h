#pragma once
// Sample-rate conversion of a whole signal, a chunk at a time: one very-high-quality converter
// per channel, each on a worker, while the caller takes the chunk converted before. Used for
// masters written at another rate and for the live source when the device runs at another rate.
// Nothing here is for the real-time thread: every call may allocate.
#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "measurement/WorkerPool.h"

struct soxr;

namespace velmora {

class RateConverter {
public:
    // run() reads at most `chunkFrames` frames at a time.
    RateConverter(std::size_t channels, double inputRate, double outputRate, std::size_t chunkFrames);
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;
    bool valid() const { return valid_; }

    // The length `frames` input frames have at the output rate, rounded to the nearest frame.
    static std::size_t outputLength(std::size_t frames, double inputRate, double outputRate);

    enum class Outcome { done, conversionFailed, outputRefused, inputFailed };
    // The whole conversion: `frames` frames pulled through read(begin, n), n at most
    // `chunkFrames` (null when the input cannot be had: inputFailed), and exactly `outputFrames`
    // frames handed to deliver(channels, n) as they come.
    // The converters' tail may round the length either way, so it is cut, or completed with
    // silence. The pointers read returns must stay valid until its next call.
    Outcome run(std::size_t frames, std::size_t outputFrames,
                const std::function<const float* const*(std::size_t begin, std::size_t n)>& read,
                const std::function<bool(const float* const* channels, std::size_t n)>& deliver);

private:
    // Converts `frames` frames from each input pointer in the background; 0 frames drains what
    // the converters still hold. The pointers must stay valid until finish().
    void start(const float* const* input, std::size_t frames);
    // Waits for the last start(); the frames it produced (equal for every channel), or nothing
    // when a converter failed.
    std::optional<std::size_t> finish();
    // Channel pointers to what the last finish() reported; valid until the start() after next.
    const float* const* output() const { return outputs_[finished_].data(); }
    void convert(std::size_t channel);

    std::vector<soxr*> converters_;
    std::vector<float> storage_[2];
    std::vector<float*> outputs_[2];
    std::size_t chunkFrames_ = 0;
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
