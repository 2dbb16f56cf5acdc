#include "mastering/StreamingChain.h"

#include "mastering/Equalisers.h"
#include "mastering/MidSide.h"

namespace velmora {

namespace {

void scale(float* x, float g, std::size_t n) noexcept {
    for (std::size_t i = 0; i < n; ++i) x[i] *= g;
}

}  // namespace

StreamingChain::StreamingChain(const MasterParams& p, double fs, std::size_t channels,
                               const std::vector<LraStep>& lraSteps)
    : channels_(channels),
      midSide_(p.msOn && channels == 2),
      midGainDB_(p.midGain),
      sideGainDB_(p.sideGain),
      fiveBand_(buildFiveBandEQ(p, fs)),
      tonal_(buildTonalEQ(p, fs)),
      fiveBandStates_(fiveBand_.size() * channels),
      tonalStates_(tonal_.size() * channels),
      pool_(WorkerPool::threadsFor(channels)) {
    if (p.compOn) compressor_.emplace(busCompressorSettings(p, fs), channels);
    for (const LraStep& s : lraSteps) {
        Step step;
        if (s.isGain) step.gain = s.gain;
        else step.envelope.emplace(channels, fs, s.ratio, s.referenceLUFS);
        steps_.push_back(std::move(step));
    }
}

StreamingChain::~StreamingChain() = default;

void StreamingChain::equalise(const std::vector<Biquad>& sections, std::vector<BiquadState>& states,
                              float* const* channels, std::size_t n) {
    if (sections.empty()) return;
    const std::size_t count = sections.size();
    pool_.start(channels_, [&, count](std::size_t c) {
        applyBiquads(sections.data(), states.data() + c * count, count, channels[c], n);
    });
    pool_.wait();
}

void StreamingChain::process(float* const* channels, std::size_t n) {
    if (midSide_) applyMidSide(channels[0], channels[1], n, midGainDB_, sideGainDB_);
    equalise(fiveBand_, fiveBandStates_, channels, n);
    if (compressor_) compressor_->process(channels, n);
    equalise(tonal_, tonalStates_, channels, n);
    for (Step& step : steps_) {
        if (step.envelope) step.envelope->process(channels, n);
        else
            for (std::size_t c = 0; c < channels_; ++c) scale(channels[c], step.gain, n);
    }
}

}  // namespace velmora
