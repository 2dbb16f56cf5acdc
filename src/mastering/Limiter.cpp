#include "mastering/Limiter.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <cmath>
#include <vector>

#include "mastering/LinkedGain.h"
#include "measurement/Kernels.h"
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

    // x[i] holds the reading of the next frame in, and the gain of the frame `latency()` before
    // it out (meaningless for the first frames, which have none).
    void run(float* x, std::size_t n) {
        std::size_t i = 0;
        while (i < n) {
            // Nothing held, released or ramping, and a stretch that needs nothing: unity.
            if (idle() && i + quietRun <= n && allUnder(x + i, quietRun)) {
                std::fill(x + i, x + i + quietRun, 1.0f);
                i += quietRun;
                continue;
            }
            const double reading = double(x[i]);
            push(frame_ + i, reading > aim_ ? aim_ / reading : 1.0);
            x[i] = float(step(held()));
            ++i;
        }
        frame_ += n;
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
    std::size_t frame_ = 0;  // readings had so far
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
double releaseCoefficient(double fs) { return std::exp(-1.0 / (fs * 0.08)); }

constexpr std::size_t history = kernels::truePeakHistory;

}  // namespace

class StreamingLimiter::Shaper : public GainShaper {
    using GainShaper::GainShaper;
};

std::size_t limiterAttackFrames(double fs) { return std::max<std::size_t>(std::size_t(std::llround(fs * 0.001)), 1); }

std::size_t limiterDelayFrames(double fs) {
    const std::size_t lookAhead = std::max<std::size_t>(std::size_t(std::llround(fs * 0.0015)), 1);
    // The last frame of a hold lies holdReach after its crest, whose samples reach
    // LimiterDetector::lookAhead further.
    return std::max(lookAhead, limiterAttackFrames(fs) - 1 + holdReach + LimiterDetector::lookAhead);
}

double plannedLimiterReduction(double truePeakDB, double gainLin, double ceilingDB) {
    return std::max(0.0, truePeakDB + 20.0 * std::log10(gainLin) - (ceilingDB - limiterMarginDB));
}

double plannedLimiterReduction(const Channels& channels, double, double gainLin, double ceilingDB) {
    if (linked::frameCount(channels) == 0) return 0.0;
    return plannedLimiterReduction(LoudnessEngine::measureTruePeak(channels), gainLin, ceilingDB);
}

StreamingLimiter::StreamingLimiter(std::size_t channels, double fs, double gainLin, double ceilingDB,
                                   double extraHeadroomDB, double trimDB)
    : channels_(channels),
      gainLin_(gainLin),
      aim_(aimFor(ceilingDB, extraHeadroomDB)),
      clamp_(clampFor(ceilingDB, extraHeadroomDB)),
      trim_(float(std::pow(10.0, -trimDB / 20.0))),
      delay_(limiterDelayFrames(fs)),
      shaper_(std::make_unique<Shaper>(aim_, limiterAttackFrames(fs), releaseCoefficient(fs))),
      window_(channels, std::vector<float>(maxBlockFrames + delay_ + history)),
      windowPointers_(channels),
      gains_(maxBlockFrames),
      detectors_(std::max<std::size_t>(1, WorkerPool::threadsFor(maxBlockFrames / LimiterDetector::chunkFrames))),
      pool_(WorkerPool::threadsFor(std::max(channels, detectors_.size()))) {
    latency_ = shaper_->latency();
    for (std::size_t c = 0; c < channels; ++c) windowPointers_[c] = window_[c].data();
}

StreamingLimiter::~StreamingLimiter() = default;

// Keeps what the next block still reads: its output's input frames from received − delay on,
// and the detector's history before the next reading.
void StreamingLimiter::compact() {
    const std::size_t outputFrom = received_ > delay_ ? received_ - delay_ : 0;
    const std::size_t readFrom = read_ > history ? read_ - history : 0;
    const std::size_t keep = std::min(outputFrom, readFrom);
    if (keep <= base_) return;
    const std::size_t held = received_ - keep, drop = keep - base_;
    for (auto& channel : window_) std::copy(channel.begin() + std::ptrdiff_t(drop), channel.begin() + std::ptrdiff_t(drop + held), channel.begin());
    base_ = keep;
}

void StreamingLimiter::process(const float* const* in, float* const* out, std::size_t n) {
    n = std::min(n, maxBlockFrames);
    if (channels_ == 0 || n == 0) return;
    compact();
    for (std::size_t c = 0; c < channels_; ++c) std::copy(in[c], in[c] + n, window_[c].begin() + std::ptrdiff_t(received_ - base_));
    received_ += n;

    // The gain of input frame f is known once the reading of f + latency is in, and that
    // reading needs samples up to 6 frames further: the delay covers both, so every frame this
    // block lets out has its gain from samples already received.
    const std::size_t readBefore = read_;
    const std::size_t reach = received_ + latency_ > delay_ ? received_ + latency_ - delay_ : 0;
    if (reach > read_) {
        const std::size_t len = reach - read_, frames = received_ - base_, from = read_ - base_;
        constexpr std::size_t chunk = LimiterDetector::chunkFrames;
        const std::size_t parts = std::min(detectors_.size(), (len + chunk - 1) / chunk);
        const std::size_t per = ((len + chunk - 1) / chunk + parts - 1) / parts * chunk;
        pool_.start(parts, [&](std::size_t t) {
            const std::size_t lo = std::min(len, t * per), hi = std::min(len, lo + per);
            detectors_[t].readings(windowPointers_, frames, from + lo, hi - lo, gainLin_, aim_, gains_.data() + lo);
        });
        pool_.wait();
        shaper_->run(gains_.data(), len);
        read_ = reach;
    }

    // Output frames [received − n, received) carry input frames delay_ earlier; those before
    // the start are silence.
    const std::size_t first = received_ - n;
    const std::size_t silent = first < delay_ ? std::min(n, delay_ - first) : 0;
    pool_.start(channels_, [&](std::size_t c) {
        float* y = out[c];
        std::fill(y, y + silent, 0.0f);
        if (silent == n) return;
        const std::size_t f = first + silent - delay_;  // the first input frame let out
        gainBlock(window_[c].data() + (f - base_), gains_.data() + (f + latency_ - readBefore), gainLin_, clamp_,
                  n - silent, y + silent);
        if (trim_ != 1.0f)
            for (std::size_t i = silent; i < n; ++i) y[i] *= trim_;
    });
    pool_.wait();
}

Channels limitToCeiling(const Channels& in, double fs, double gainLin, double ceilingDB, double extraHeadroomDB) {
    Channels out = in;
    limitToCeilingInPlace(out, fs, gainLin, ceilingDB, extraHeadroomDB);
    return out;
}

void limitToCeilingInPlace(Channels& channels, double fs, double gainLin, double ceilingDB, double extraHeadroomDB) {
    const std::size_t n = linked::frameCount(channels);
    StreamingLimiter limiter(channels.size(), fs, gainLin, ceilingDB, extraHeadroomDB);
    std::vector<float*> at(channels.size());
    for (std::size_t begin = 0; begin < n; begin += StreamingLimiter::maxBlockFrames) {
        for (std::size_t c = 0; c < channels.size(); ++c) at[c] = channels[c].data() + begin;
        limiter.process(at.data(), at.data(), std::min(StreamingLimiter::maxBlockFrames, n - begin));
    }
}

}  // namespace velmora
