#include "mastering/Limiter.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <cmath>
#include <vector>

#include "mastering/LimiterDetector.h"
#include "mastering/LinkedGain.h"
#include "measurement/WorkerPool.h"

namespace velmora {

namespace {

// An inter-sample crest between frames k and k + 1 is made of samples k − 5 … k + 6: the gain
// it needs must hold, unchanged, over all of them.
constexpr std::size_t holdReach = 6;

// Turns the detector's readings into the gain each frame gets, in place. A frame that reads
// p > aim needs aim / p. That need is held over ±holdReach frames, released with a one-pole
// (80 ms) and then averaged over the attack length, which ramps the gain down linearly ahead
// of the crest: every frame of the hold gets exactly its need or less. The gain of frame t is
// known once the reading of t + latency is in; it is written over a reading already used.
class GainShaper {
public:
    GainShaper(double aimLin, std::size_t attackFrames, double release)
        : aim_(aimLin), attack_(attackFrames), release_(release), window_(attackFrames + 2 * holdReach),
          capacity_(std::bit_ceil(window_ + 1)), needs_(capacity_), frames_(capacity_), ramp_(attackFrames, 1.0),
          sum_(double(attackFrames)) {}

    std::size_t latency() const { return holdReach + attack_ - 1; }

    void run(float* curve, std::size_t n) {
        const std::size_t lat = latency();
        std::size_t j = 0;
        while (j < n + lat) {
            // Nothing held, released or ramping, and a stretch that needs nothing: unity.
            if (idle() && j + quietRun <= n && allUnder(curve + j, quietRun)) {
                for (std::size_t k = j; k < j + quietRun; ++k)
                    if (k >= lat) curve[k - lat] = 1.0f;
                j += quietRun;
                continue;
            }
            const double reading = j < n ? double(curve[j]) : 0.0;
            const double need = reading > aim_ ? aim_ / reading : 1.0;
            push(j, need);
            const double gain = step(held());
            if (j >= lat) curve[j - lat] = float(gain);
            ++j;
        }
    }

private:
    static constexpr std::size_t quietRun = 256;

    bool idle() const { return head_ == tail_ && released_ == 1.0 && rampBelow_ == 0; }

    bool allUnder(const float* x, std::size_t n) const {
        float limit = float(aim_);
        if (double(limit) > aim_) limit = std::nextafter(limit, 0.0f);
        bool under = true;
        for (std::size_t i = 0; i < n; ++i) under &= x[i] <= limit;
        return under;
    }

    // A monotonic queue of the needs below 1 in the window: its front is the window's minimum.
    void push(std::size_t frame, double need) {
        while (head_ != tail_ && frames_[head_ & mask()] + window_ <= frame) ++head_;
        if (need >= 1.0) return;
        while (head_ != tail_ && needs_[(tail_ - 1) & mask()] >= need) --tail_;
        needs_[tail_ & mask()] = need;
        frames_[tail_ & mask()] = frame;
        ++tail_;
    }
    double held() const { return head_ == tail_ ? 1.0 : needs_[head_ & mask()]; }

    double step(double hold) {
        released_ = hold < released_ ? hold : released_ + (1.0 - release_) * (hold - released_);
        if (hold == 1.0 && released_ > 1.0 - 1e-9) released_ = 1.0;  // the tail of the release
        double& oldest = ramp_[rampAt_];
        rampBelow_ += (released_ < 1.0) - (oldest < 1.0);
        sum_ += released_ - oldest;
        oldest = released_;
        if (++rampAt_ == attack_) rampAt_ = 0;
        if (rampBelow_ == 0) sum_ = double(attack_);  // no drift once the ramp is back at unity
        return std::min(sum_ / double(attack_), 1.0);
    }

    std::size_t mask() const { return capacity_ - 1; }

    double aim_;
    std::size_t attack_;
    double release_;
    std::size_t window_, capacity_;
    std::vector<double> needs_;
    std::vector<std::size_t> frames_;
    std::size_t head_ = 0, tail_ = 0;
    std::vector<double> ramp_;  // the released gains of the last `attack_` frames
    std::size_t rampAt_ = 0, rampBelow_ = 0;
    double released_ = 1.0;
    double sum_;
};

// The scaled input times its gain, clamped at the ceiling as a last guard.
__attribute__((target_clones("arch=x86-64-v3", "default")))
void gainBlock(const float* src, const float* gain, double gainLin, float h, std::size_t n, float* y) noexcept {
    for (std::size_t j = 0; j < n; ++j) {
        const float v = float(gainLin * double(src[j])) * gain[j];
        y[j] = v < -h ? -h : (v > h ? h : v);
    }
}

double aimFor(double ceilingDB, double extraDB) { return std::pow(10.0, (ceilingDB - limiterMarginDB - extraDB) / 20.0); }
float clampFor(double ceilingDB, double extraDB) { return float(std::pow(10.0, (ceilingDB - extraDB) / 20.0)); }

// Output frames [lo, hi) of one channel into y: the input delayed by D, scaled and limited.
void limitedFrames(const float* src, const float* gain, std::size_t lo, std::size_t hi, std::size_t D, double gainLin,
                   float h, float* y) noexcept {
    // Frames [lo, hi) carry inputs [lo − D, hi − D); those before the start are silence.
    const std::size_t silent = std::min(hi, std::max(lo, D)) - lo;
    std::fill(y, y + silent, 0.0f);
    if (hi > lo + silent) gainBlock(src + (lo + silent - D), gain + (lo + silent - D), gainLin, h, hi - lo - silent, y + silent);
}

// One channel from `src` into `dst`, which may be `src`. Blocks run from the end backwards and
// each block is computed into `y` first, so in place nothing is read after it was overwritten.
void limitChannel(const float* src, float* dst, std::size_t n, std::size_t D, double gainLin, const float* gain,
                  float h, float* y) noexcept {
    constexpr std::size_t B = linked::chunkFrames;
    std::size_t hi = n;
    while (hi > 0) {
        const std::size_t lo = hi > B ? hi - B : 0;
        limitedFrames(src, gain, lo, hi, D, gainLin, h, y);
        std::copy(y, y + (hi - lo), dst + lo);
        hi = lo;
    }
}

double releaseCoefficient(double fs) { return std::exp(-1.0 / (fs * 0.08)); }

// The whole curve comes before any output, so in place the detector still sees the input.
std::unique_ptr<float[]> gainCurve(const Channels& channels, double fs, double gainLin, double aimLin) {
    const std::size_t n = linked::frameCount(channels);
    auto curve = linked::newCurve(n);
    limiterReadings(channels, gainLin, aimLin, curve.get());
    GainShaper(aimLin, limiterAttackFrames(fs), releaseCoefficient(fs)).run(curve.get(), n);
    return curve;
}

void limit(const Channels& in, Channels& out, double fs, double gainLin, double ceilingDB, double extraDB) {
    const std::size_t n = linked::frameCount(in);
    if (n == 0) return;
    const double aim = aimFor(ceilingDB, extraDB);
    const float h = clampFor(ceilingDB, extraDB);
    const std::size_t D = limiterDelayFrames(fs);
    const auto gain = gainCurve(in, fs, gainLin, aim);
    std::vector<std::vector<float>> scratch(in.size(), std::vector<float>(linked::chunkFrames));
    parallelFor(in.size(), [&](std::size_t ch) {
        limitChannel(in[ch].data(), out[ch].data(), n, D, gainLin, gain.get(), h, scratch[ch].data());
    });
}

}  // namespace

std::size_t limiterAttackFrames(double fs) { return std::max<std::size_t>(std::size_t(std::llround(fs * 0.001)), 1); }

std::size_t limiterDelayFrames(double fs) {
    const std::size_t lookAhead = std::max<std::size_t>(std::size_t(std::llround(fs * 0.0015)), 1);
    // The last frame of a hold lies holdReach after its crest, whose samples reach
    // LimiterDetector::lookAhead further.
    return std::max(lookAhead, limiterAttackFrames(fs) - 1 + holdReach + LimiterDetector::lookAhead);
}

// The loudest reading is the measurement's own true peak: the same interpolation, one pass per
// channel in parallel, and no per-frame readings kept.
double limiterDetectorPeak(const Channels& channels) {
    return std::pow(10.0, LoudnessEngine::measureTruePeak(channels) / 20.0);
}

double plannedLimiterReduction(double truePeakDB, double gainLin, double ceilingDB) {
    return std::max(0.0, truePeakDB + 20.0 * std::log10(gainLin) - (ceilingDB - limiterMarginDB));
}

double plannedLimiterReduction(const Channels& channels, double, double gainLin, double ceilingDB) {
    if (linked::frameCount(channels) == 0) return 0.0;
    return plannedLimiterReduction(LoudnessEngine::measureTruePeak(channels), gainLin, ceilingDB);
}

Channels limitToCeiling(const Channels& in, double fs, double gainLin, double ceilingDB, double extraHeadroomDB) {
    Channels out(in.size());
    for (std::size_t c = 0; c < in.size(); ++c) out[c].resize(in[c].size());
    limit(in, out, fs, gainLin, ceilingDB, extraHeadroomDB);
    return out;
}

LimitedProgramme::LimitedProgramme(const Channels& in, double fs, double gainLin, double ceilingDB,
                                   double extraHeadroomDB, double trimDB)
    : in_(in),
      gainLin_(gainLin),
      clamp_(clampFor(ceilingDB, extraHeadroomDB)),
      trim_(float(std::pow(10.0, -trimDB / 20.0))),
      delay_(limiterDelayFrames(fs)),
      out_(in.size(), std::vector<float>(blockFrames)),
      pointers_(in.size()),
      pool_(WorkerPool::threadsFor(in.size())) {
    if (frameCount() > 0) gain_ = gainCurve(in, fs, gainLin, aimFor(ceilingDB, extraHeadroomDB));
    for (std::size_t c = 0; c < in.size(); ++c) pointers_[c] = out_[c].data();
}

std::size_t LimitedProgramme::frameCount() const { return linked::frameCount(in_); }

const float* const* LimitedProgramme::block(std::size_t begin, std::size_t n) {
    n = std::min(n, blockFrames);
    pool_.start(in_.size(), [this, begin, n](std::size_t c) {
        float* y = out_[c].data();
        limitedFrames(in_[c].data(), gain_.get(), begin, begin + n, delay_, gainLin_, clamp_, y);
        // The plain cut is the same float multiply as scaling the finished buffer.
        if (trim_ != 1.0f)
            for (std::size_t i = 0; i < n; ++i) y[i] *= trim_;
    });
    pool_.wait();
    return pointers_.data();
}

void limitToCeilingInPlace(Channels& channels, double fs, double gainLin, double ceilingDB, double extraHeadroomDB) {
    limit(channels, channels, fs, gainLin, ceilingDB, extraHeadroomDB);
}

}  // namespace velmora
