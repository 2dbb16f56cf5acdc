#include "mastering/OnlineMasteringStreamer.h"

#include <algorithm>
#include <cmath>

#include "mastering/Equalisers.h"
#include "audio/Denormals.h"
#include "audio/Resample.h"


namespace velmora {

namespace {

// Left and right side by side: one coefficient set runs both channels in one vector operation.
typedef double Pair __attribute__((vector_size(16)));
typedef float FloatPair __attribute__((vector_size(8)));

// N sections over both channels in one pass, continuing from their memories. The sample is
// narrowed to float between sections, as when each section runs over the block on its own.
template <int N>
__attribute__((always_inline)) inline void runSections(const Biquad* sec, kernels::SectionState* sl,
                                                       kernels::SectionState* sr, float* l, float* r,
                                                       std::size_t n) noexcept {
    Pair b0[N], b1[N], b2[N], a1[N], a2[N], z1[N], z2[N];
    for (int k = 0; k < N; ++k) {
        b0[k] = Pair{sec[k].b0, sec[k].b0}, b1[k] = Pair{sec[k].b1, sec[k].b1}, b2[k] = Pair{sec[k].b2, sec[k].b2};
        a1[k] = Pair{sec[k].a1, sec[k].a1}, a2[k] = Pair{sec[k].a2, sec[k].a2};
        z1[k] = Pair{sl[k].s1, sr[k].s1}, z2[k] = Pair{sl[k].s2, sr[k].s2};
    }
    for (std::size_t i = 0; i < n; ++i) {
        Pair v = {l[i], r[i]};
        for (int k = 0; k < N; ++k) {
            const Pair y = z1[k] + b0[k] * v;
            z1[k] = z2[k] + b1[k] * v - a1[k] * y;
            z2[k] = b2[k] * v - a2[k] * y;
            v = __builtin_convertvector(__builtin_convertvector(y, FloatPair), Pair);
        }
        l[i] = float(v[0]);
        r[i] = float(v[1]);
    }
    for (int k = 0; k < N; ++k) {
        // A non-finite sample would silence every later block; start that section from rest.
        const bool finite = std::isfinite(z1[k][0] + z2[k][0] + z1[k][1] + z2[k][1]);
        sl[k] = finite ? kernels::SectionState{z1[k][0], z2[k][0]} : kernels::SectionState{};
        sr[k] = finite ? kernels::SectionState{z1[k][1], z2[k][1]} : kernels::SectionState{};
    }
}

__attribute__((target_clones("arch=x86-64-v3", "default")))
void runCascade(const Biquad* sec, std::size_t count, kernels::SectionState* sl, kernels::SectionState* sr, float* l,
                float* r, std::size_t n) noexcept {
    switch (count) {
        case 0: break;
        case 1: runSections<1>(sec, sl, sr, l, r, n); break;
        case 2: runSections<2>(sec, sl, sr, l, r, n); break;
        case 3: runSections<3>(sec, sl, sr, l, r, n); break;
        case 4: runSections<4>(sec, sl, sr, l, r, n); break;
        case 5: runSections<5>(sec, sl, sr, l, r, n); break;
        case 6: runSections<6>(sec, sl, sr, l, r, n); break;
        case 7: runSections<7>(sec, sl, sr, l, r, n); break;
        default: runSections<8>(sec, sl, sr, l, r, n); break;
    }
}

// The bus compressor, stereo-linked on the louder channel's sample peak, in the dB domain,
// in place; returns the envelope to carry into the next block (at rest again if a non-finite
// sample made it non-finite).
__attribute__((target_clones("arch=x86-64-v3", "default")))
double compress(const CompressorSettings& s, double env, float* l, float* r, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        const double level = 20.0 * std::log10(std::max(double(std::max(std::fabs(l[i]), std::fabs(r[i]))), 1e-9));
        env = level + (env - level) * (env < level ? s.attack : s.release);
        const double over = env - s.thresholdDB;
        const double gain = s.makeup * (over > 0 ? std::pow(10.0, -s.slope * over / 20.0) : 1.0);
        l[i] = float(l[i] * gain);
        r[i] = float(r[i] * gain);
    }
    return std::isfinite(env) ? env : detectorRestDB;
}

}  // namespace

std::optional<LoudnessError> OnlineMasteringStreamer::init(const Channels& channels, double fileRate,
                                                           double renderRate) {
    return initFolded(foldToStereo(channels), fileRate, renderRate);
}

void OnlineMasteringStreamer::init(std::shared_ptr<ListeningStream> stream) {
    initFolded({}, stream->renderRate(), stream->renderRate());
    totalFrames_ = stream->totalFrames();
    stream_ = std::move(stream);
}

std::optional<LoudnessError> OnlineMasteringStreamer::initFolded(StereoSamples stereo, double fileRate, double renderRate) {
    stream_.reset();
    renderRate_ = renderRate;
    sourceL_ = std::move(stereo.left);
    sourceR_ = std::move(stereo.right);
    std::optional<LoudnessError> failure;
    if (renderRate != fileRate && !sourceL_.empty()) {
        const bool rates = fileRate >= 1.0 && renderRate >= 1.0 && std::isfinite(fileRate) && std::isfinite(renderRate);
        sourceL_ = rates ? resample(sourceL_, fileRate, renderRate, ResampleQuality::veryHigh) : std::vector<float>{};
        sourceR_ = rates ? resample(sourceR_, fileRate, renderRate, ResampleQuality::veryHigh) : std::vector<float>{};
        if (sourceL_.empty() || sourceL_.size() != sourceR_.size()) {
            sourceL_.clear();
            sourceR_.clear();
            failure = LoudnessError{LoudnessError::Code::rateConversion};
        }
    }
    totalFrames_ = std::int64_t(sourceL_.size());
    stateL_ = stateR_ = {};
    envDB_ = detectorRestDB;
    sourceWeight_ = sourceHeard_.load() ? 1.0f : 0.0f;
    appliedSourceGain_ = sourceGain_.load();
    const double crossfadeFrames = std::max(crossfadeSeconds * renderRate_, 1.0);
    weightStep_ = float(1.0 / crossfadeFrames);
    // Within a thousandth of a step after the crossfade's time.
    gainGlide_ = 1.0 - std::exp(-7.0 / crossfadeFrames);
    playhead_.store(0);
    pendingSeek_.store(-1);
    coefs_.reset(Coefs{});
    meter_.store(nullptr);
    return failure;
}

void OnlineMasteringStreamer::update(const MasterParams& params, double preGainDB) {
    const LiveCascade cascade = buildLiveCascade(params, renderRate_);
    Coefs& c = coefs_.back();
    c.enabled = params.eqOn;
    c.filterCount = std::min(cascade.sections.size(), maxFilters);
    std::copy_n(cascade.sections.begin(), c.filterCount, c.filters.begin());
    c.numPreCompFilters = std::min(cascade.preCompressor, c.filterCount);
    c.preGainLin = float(std::pow(10.0, preGainDB / 20.0));
    c.compOn = params.compOn;
    c.comp = busCompressorSettings(params, renderRate_);
    coefs_.publish();
}

void OnlineMasteringStreamer::render(std::size_t frames, float* left, float* right) noexcept {
    const ScopedDenormalFlush flushed;
    const Coefs& coefs = coefs_.read();
    if (stream_) {
        const ListeningStream::Block block = stream_->read(frames, left, right);
        if (block.restarted) {
            stateL_ = stateR_ = {};
            envDB_ = detectorRestDB;
        }
        play(coefs, left, right, block.frames);
        return;
    }
    const std::int64_t seekTo = pendingSeek_.exchange(-1, std::memory_order_acquire);
    if (seekTo >= 0) {
        playhead_.store(seekTo, std::memory_order_relaxed);
        stateL_ = stateR_ = {};
        envDB_ = detectorRestDB;
    }
    const std::int64_t playhead = playhead_.load(std::memory_order_relaxed);
    const bool looping = looping_.load(std::memory_order_relaxed);
    // Played once, the end stays the end: silence until a seek.
    const std::int64_t start = playhead < totalFrames_ ? playhead : looping ? 0 : totalFrames_;
    const std::size_t n = std::size_t(std::min<std::int64_t>(totalFrames_ - start, std::int64_t(frames)));

    std::copy_n(sourceL_.data() + start, n, left);
    std::copy_n(sourceR_.data() + start, n, right);
    std::fill(left + n, left + frames, 0.0f);
    std::fill(right + n, right + frames, 0.0f);
    play(coefs, left, right, n);
    const std::int64_t next = start + std::int64_t(n);
    playhead_.store(looping ? next % std::max<std::int64_t>(totalFrames_, 1) : next, std::memory_order_relaxed);
}

void OnlineMasteringStreamer::process(const Coefs& coefs, float* left, float* right, std::size_t n) noexcept {
    const float gain = coefs.preGainLin;
    for (std::size_t i = 0; i < n; ++i) {
        left[i] = gain * left[i];
        right[i] = gain * right[i];
    }
    const std::size_t total = coefs.filterCount, pre = coefs.numPreCompFilters;
    if (coefs.enabled) runCascade(coefs.filters.data(), pre, stateL_.data(), stateR_.data(), left, right, n);
    if (coefs.compOn) envDB_ = compress(coefs.comp, envDB_, left, right, n);
    if (coefs.enabled)
        runCascade(coefs.filters.data() + pre, total - pre, stateL_.data() + pre, stateR_.data() + pre, left, right, n);
}

void OnlineMasteringStreamer::play(const Coefs& coefs, float* left, float* right, std::size_t n) noexcept {
    const float weightTarget = sourceHeard_.load(std::memory_order_relaxed) ? 1.0f : 0.0f;
    const float gainTarget = sourceGain_.load(std::memory_order_relaxed);
    // While the source is not heard at all its gain settles at once, unheard: a crossing to it
    // starts at the right level.
    if (sourceWeight_ == 0.0f) appliedSourceGain_ = gainTarget;
    if (weightTarget == 0.0f && sourceWeight_ == 0.0f) {
        process(coefs, left, right, n);
    } else {
        for (std::size_t done = 0; done < n; done += sideFrames) {
            const std::size_t m = std::min(sideFrames, n - done);
            float* l = left + done;
            float* r = right + done;
            std::copy_n(l, m, dryL_.data());
            std::copy_n(r, m, dryR_.data());
            process(coefs, l, r, m);
            float w = sourceWeight_;
            double g = appliedSourceGain_;  // in double, so that the glide does not stall short of its target
            for (std::size_t i = 0; i < m; ++i) {
                // Linear weights that sum to one: the two sides cross at equal gain.
                w = weightTarget > w ? std::min(w + weightStep_, weightTarget) : std::max(w - weightStep_, weightTarget);
                g += (double(gainTarget) - g) * gainGlide_;
                const float source = w * float(g);
                l[i] = (1.0f - w) * l[i] + source * dryL_[i];
                r[i] = (1.0f - w) * r[i] + source * dryR_[i];
            }
            sourceWeight_ = w;
            // Settled within a millionth: the target itself, so that a steady side is exact.
            appliedSourceGain_ = std::fabs(double(gainTarget) - g) <= 1e-6 * double(gainTarget) ? double(gainTarget) : g;
        }
    }
    if (LiveMeter* meter = meter_.load(std::memory_order_acquire); meter && n > 0) meter->process(left, right, n);
}

void OnlineMasteringStreamer::processBlock(float* left, float* right, std::size_t n) noexcept {
    const ScopedDenormalFlush flushed;
    process(coefs_.read(), left, right, n);
}

void OnlineMasteringStreamer::setSourceGain(double dB) noexcept {
    const double linear = std::pow(10.0, dB / 20.0);
    sourceGain_.store(std::isfinite(linear) ? float(linear) : 1.0f, std::memory_order_relaxed);
}

void OnlineMasteringStreamer::seek(double fraction) noexcept {
    if (stream_) {
        stream_->seekFraction(fraction);
        return;
    }
    const double f = fraction > 0 ? std::min(fraction, 1.0) : 0.0;  // NaN too goes to the start
    pendingSeek_.store(std::int64_t(f * double(totalFrames_)), std::memory_order_release);
}

void OnlineMasteringStreamer::setLooping(bool on) noexcept {
    if (stream_) stream_->setLooping(on);
    looping_.store(on, std::memory_order_relaxed);
}

bool OnlineMasteringStreamer::atEnd() const noexcept {
    if (stream_) return stream_->atEnd();
    return !looping_.load(std::memory_order_relaxed) && playhead_.load(std::memory_order_relaxed) >= totalFrames_ &&
           pendingSeek_.load(std::memory_order_relaxed) < 0;
}

double OnlineMasteringStreamer::position() const noexcept {
    if (stream_) return stream_->position();
    return totalFrames_ > 0 ? double(playhead_.load(std::memory_order_relaxed)) / double(totalFrames_) : 0.0;
}

void OnlineMasteringStreamer::setLiveMeter(std::shared_ptr<LiveMeter> meter) noexcept {
    meter_.store(meter.get(), std::memory_order_release);
}

}  // namespace velmora
