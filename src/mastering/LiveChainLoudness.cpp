#include "mastering/LiveChainLoudness.h"

#include <array>
#include <cmath>
#include <vector>

#include "audio/StereoFold.h"
#include "mastering/Equalisers.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "measurement/ProgrammeMeasure.h"

namespace velmora {

namespace {

// The source folded to stereo as the listening stream folds it, and through the live chain when
// one is given: the pair the listener hears, as a programme the standard measurement reads.
class HeardProgramme final : public Programme {
public:
    HeardProgramme(const Programme& source, const MasterParams* chain, const std::atomic<bool>& cancelled)
        : source_(source), chain_(chain), cancelled_(cancelled) {}
    std::size_t channelCount() const override { return 2; }
    std::size_t frameCount() const override { return source_.frameCount(); }
    double sampleRate() const override { return source_.sampleRate(); }
    std::unique_ptr<ProgrammePass> read() const override {
        return std::make_unique<Pass>(source_, chain_, cancelled_);
    }

private:
    class Pass final : public ProgrammePass {
    public:
        Pass(const Programme& source, const MasterParams* chain, const std::atomic<bool>& cancelled)
            : source_(source.read()), channels_(source.channelCount()), cancelled_(cancelled),
              left_(maxBlockFrames), right_(maxBlockFrames), in_(channels_) {
            if (chain) {
                // At the file's rate: the filters' responses, and so the loudness, are the
                // device's to within the measurement's own precision.
                streamer_ = std::make_unique<OnlineMasteringStreamer>();
                streamer_->initFolded({}, source.sampleRate(), source.sampleRate());
                streamer_->update(*chain, 0.0);
            }
        }
        float* const* next(std::size_t n) override {
            if (cancelled_.load(std::memory_order_relaxed)) {
                error_ = LoudnessError{LoudnessError::Code::interrupted};
                return nullptr;
            }
            float* const* block = source_->next(n);
            if (!block) {
                error_ = source_->error();
                return nullptr;
            }
            in_.assign(block, block + channels_);
            foldToStereo(in_.data(), channels_, n, left_.data(), right_.data());
            if (streamer_) streamer_->processBlock(left_.data(), right_.data(), n);
            return out_.data();
        }
        LoudnessError error() const override { return error_; }

    private:
        std::unique_ptr<ProgrammePass> source_;
        std::size_t channels_;
        const std::atomic<bool>& cancelled_;
        std::vector<float> left_, right_;
        std::vector<const float*> in_;
        std::array<float*, 2> out_{left_.data(), right_.data()};
        std::unique_ptr<OnlineMasteringStreamer> streamer_;
        LoudnessError error_{LoudnessError::Code::cannotRead};
    };

    const Programme& source_;
    const MasterParams* chain_;
    const std::atomic<bool>& cancelled_;
};

Expected<double> heardLoudness(const Programme& source, const MasterParams* chain, const std::atomic<bool>& cancelled) {
    static constexpr std::array<double, 2> weights{1.0, 1.0};
    const auto measured = measureStreamed(HeardProgramme(source, chain, cancelled), weights);
    if (!measured) return measured.error();
    if (!std::isfinite(measured->integratedLUFS)) return LoudnessError{LoudnessError::Code::tooQuiet};
    return measured->integratedLUFS;
}

}  // namespace

bool liveChainIsNeutral(const MasterParams& params) {
    if (params.compOn) return false;
    // The rate only places the bands: whether any counts does not depend on it.
    return !params.eqOn || buildLiveCascade(params, 48000).sections.empty();
}

Expected<LiveChainLoudness> measureLiveChain(const Programme& source, const MasterParams& params,
                                             const std::atomic<bool>& cancelled) {
    const auto plain = heardLoudness(source, nullptr, cancelled);
    if (!plain) return plain.error();
    const auto processed = heardLoudness(source, &params, cancelled);
    if (!processed) return processed.error();
    return LiveChainLoudness{*plain, *processed};
}

}  // namespace velmora
