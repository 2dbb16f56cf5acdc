#include "output/BlockEncoder.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "output/MasterWriter.h"

namespace velmora {
namespace {

// Adding 1.5·2^52 leaves no fraction bits in a double: rounds to nearest, ties to even.
constexpr double roundingMagic = 6755399441055744.0;

template <int Bits>
void quantise(const float* in, std::size_t n, float* stored, std::int32_t* q) {
    constexpr double scale = double(1 << (Bits - 1)), lo = -scale, hi = scale - 1.0;
    constexpr float inverse = float(1.0 / scale);
    for (std::size_t i = 0; i < n; ++i) {
        double x = double(in[i]) * scale;
        x = x == x ? x : 0.0;
        x = x < lo ? lo : (x > hi ? hi : x);
        const auto v = std::int32_t((x + roundingMagic) - roundingMagic);
        q[i] = v;
        stored[i] = float(v) * inverse;
    }
}

template <int Bytes, bool BigEndian>
void pack(const std::uint32_t* v, std::size_t n, unsigned char* out, std::size_t stride) {
    for (std::size_t i = 0; i < n; ++i, out += stride)
        for (int b = 0; b < Bytes; ++b) out[b] = static_cast<unsigned char>(v[i] >> (8 * (BigEndian ? Bytes - 1 - b : b)));
}

template <int Bytes>
void packEndian(bool bigEndian, const std::uint32_t* v, std::size_t n, unsigned char* out, std::size_t stride) {
    bigEndian ? pack<Bytes, true>(v, n, out, stride) : pack<Bytes, false>(v, n, out, stride);
}

}  // namespace

BlockEncoder::BlockEncoder(std::size_t channels, BitDepth depth, bool bigEndian, SampleObserver* observer,
                           WriteFn write, void* context)
    : channels_(channels), sampleBytes_(std::size_t(bits(depth) / 8)), depth_(depth), bigEndian_(bigEndian),
      observer_(observer), write_(write), context_(context), pool_(WorkerPool::threadsFor(2)) {
    for (Block& b : blocks_) {
        b.bytes.resize(blockFrames * channels * sampleBytes_);
        b.stored.resize(blockFrames * channels);
        for (std::size_t c = 0; c < channels; ++c) b.channels.push_back(b.stored.data() + c * blockFrames);
    }
    jobInput_.resize(channels);
}

void BlockEncoder::encode(Block& block, const float* const* in, std::size_t from, std::size_t to) const {
    // Integer samples go through a small stack area so the workers share nothing but the block.
    constexpr std::size_t step = 1024;
    std::uint32_t scratch[step];
    const std::size_t stride = channels_ * sampleBytes_;
    for (std::size_t c = 0; c < channels_; ++c)
        for (std::size_t i = from; i < to; i += step) {
            const std::size_t n = std::min(step, to - i);
            float* stored = block.stored.data() + c * blockFrames + i;
            unsigned char* out = block.bytes.data() + i * stride + c * sampleBytes_;
            auto* q = reinterpret_cast<std::int32_t*>(scratch);
            switch (depth_) {
            case BitDepth::int16:
                quantise<16>(in[c] + i, n, stored, q);
                packEndian<2>(bigEndian_, scratch, n, out, stride);
                break;
            case BitDepth::int24:
                quantise<24>(in[c] + i, n, stored, q);
                packEndian<3>(bigEndian_, scratch, n, out, stride);
                break;
            case BitDepth::float32:
                std::memcpy(stored, in[c] + i, n * sizeof(float));
                std::memcpy(scratch, stored, n * sizeof(float));
                packEndian<4>(bigEndian_, scratch, n, out, stride);
                break;
            }
        }
}

bool BlockEncoder::flush(Block& block) {
    if (!write_(context_, block.bytes.data(), block.frames * channels_ * sampleBytes_)) return false;
    if (observer_) observer_->samplesWritten(block.channels, block.frames);
    return true;
}

bool BlockEncoder::push(const float* const* in, std::size_t frames) {
    for (std::size_t off = 0; off < frames; off += blockFrames) {
        const int next = pending_ == 0 ? 1 : 0;
        jobBlock_ = &blocks_[next];
        jobBlock_->frames = std::min(blockFrames, frames - off);
        for (std::size_t c = 0; c < channels_; ++c) jobInput_[c] = in[c] + off;
        // Tiny blocks are not worth waking a second worker for.
        jobTasks_ = jobBlock_->frames >= 4096 ? 2 : 1;
        pool_.start(jobTasks_, [this](std::size_t t) {
            const std::size_t n = jobBlock_->frames;
            encode(*jobBlock_, jobInput_.data(), n * t / jobTasks_, n * (t + 1) / jobTasks_);
        });
        const bool written = pending_ < 0 || flush(blocks_[pending_]);
        pool_.wait();
        if (!written) return false;
        pending_ = next;
    }
    return true;
}

bool BlockEncoder::finish() {
    const bool ok = pending_ < 0 || flush(blocks_[pending_]);
    pending_ = -1;
    return ok;
}

}  // namespace velmora
