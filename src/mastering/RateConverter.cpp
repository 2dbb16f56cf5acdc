#include "mastering/RateConverter.h"

#include <algorithm>
#include <cmath>
#include <soxr.h>

namespace velmora {

RateConverter::RateConverter(std::size_t channels, double inputRate, double outputRate, std::size_t chunkFrames)
    : chunkFrames_(chunkFrames), produced_(channels, 0), failed_(channels, 0), pool_(WorkerPool::threadsFor(channels)) {
    // Room for a whole chunk plus what the filters still hold from before, at any ratio.
    const double ratio = outputRate / inputRate;
    capacity_ = std::size_t(std::ceil(double(chunkFrames + 32768) * ratio)) + 64;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    for (std::size_t c = 0; c < channels; ++c) {
        soxr_error_t error = nullptr;
        soxr_t s = soxr_create(inputRate, outputRate, 1, &error, &io, &quality, &runtime);
        if (!s || error) valid_ = false;
        if (s) converters_.push_back(s);
    }
    for (int b = 0; b < 2; ++b) {
        storage_[b].assign(capacity_ * channels, 0.0f);
        for (std::size_t c = 0; c < channels; ++c) outputs_[b].push_back(storage_[b].data() + c * capacity_);
    }
}

RateConverter::~RateConverter() {
    pool_.wait();
    for (soxr_t s : converters_) soxr_delete(s);
}

void RateConverter::start(const float* const* input, std::size_t frames) {
    input_ = input;
    inputFrames_ = frames;
    current_ ^= 1;
    pool_.start(converters_.size(), [this](std::size_t c) { convert(c); });
}

void RateConverter::convert(std::size_t c) {
    float* out = outputs_[current_][c];
    std::size_t consumed = 0, produced = 0;
    bool failed = false;
    for (;;) {
        std::size_t used = 0, made = 0;
        const float* in = inputFrames_ ? input_[c] + consumed : nullptr;
        if (soxr_process(converters_[c], in, inputFrames_ - consumed, &used, out + produced, capacity_ - produced,
                         &made))
            failed = true;
        consumed += used;
        produced += made;
        const bool drained = inputFrames_ ? consumed == inputFrames_ : made == 0;
        if (failed || drained || produced == capacity_ || (used == 0 && made == 0)) break;
    }
    // Input left over means the output had no room: the chunk would lose samples.
    failed_[c] = failed || consumed != inputFrames_;
    produced_[c] = produced;
}

std::optional<std::size_t> RateConverter::finish() {
    pool_.wait();
    finished_ = current_;
    if (converters_.empty() || std::any_of(failed_.begin(), failed_.end(), [](char f) { return f != 0; }))
        return std::nullopt;
    if (std::any_of(produced_.begin(), produced_.end(), [&](std::size_t p) { return p != produced_[0]; }))
        return std::nullopt;
    return produced_[0];
}

std::size_t RateConverter::outputLength(std::size_t frames, double inputRate, double outputRate) {
    return std::size_t(std::llround(double(frames) * outputRate / inputRate));
}

RateConverter::Outcome RateConverter::run(
    std::size_t frames, std::size_t outputFrames,
    const std::function<const float* const*(std::size_t begin, std::size_t n)>& read,
    const std::function<bool(const float* const* channels, std::size_t n)>& deliver) {
    if (!valid_) return Outcome::conversionFailed;
    std::size_t position = 0, emitted = 0, started = 0;
    auto startNext = [&] {
        started = std::min(chunkFrames_, frames - position);
        const float* const* chunk = started > 0 ? read(position, started) : nullptr;
        if (started > 0 && !chunk) return false;
        position += started;
        start(chunk, started);  // 0 frames once the input is spent: drain
        return true;
    };
    if (!startNext()) return Outcome::inputFailed;
    for (;;) {
        const std::optional<std::size_t> made = finish();
        if (!made) return Outcome::conversionFailed;
        const bool done = started == 0 && *made == 0;
        const float* const* out = output();
        if (!done && !startNext()) return Outcome::inputFailed;
        const std::size_t n = std::min(*made, outputFrames - emitted);
        if (n > 0 && !deliver(out, n)) {
            if (!done) finish();  // the chunk started above must not outlive what read() gave it
            return Outcome::outputRefused;
        }
        emitted += n;
        if (done) break;
    }
    if (emitted < outputFrames) {
        const std::vector<float> silence(std::min(chunkFrames_, outputFrames - emitted), 0.0f);
        const std::vector<const float*> zeros(converters_.size(), silence.data());
        while (emitted < outputFrames) {
            const std::size_t n = std::min(silence.size(), outputFrames - emitted);
            if (!deliver(zeros.data(), n)) return Outcome::outputRefused;
            emitted += n;
        }
    }
    return Outcome::done;
}

}  // namespace velmora
