#pragma once
// A programme seen through the mastering chain without ever being held: each pass reads the
// source again (decoding it, for a file) and renders it block by block, so a master of any
// length keeps a few blocks in memory rather than the programme. The passes that decide the
// loudness-range reduction render as far as the steps decided so far.
#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "audio/ProgrammeStream.h"
#include "mastering/LoudnessRangeReduction.h"
#include "mastering/MasterParams.h"

namespace velmora {

class RenderedProgramme final : public Programme {
public:
    // `source` must outlive this object and every pass read from it.
    RenderedProgramme(const Programme& source, const MasterParams& params, std::vector<LraStep> lraSteps);
    std::size_t channelCount() const override { return source_.channelCount(); }
    std::size_t frameCount() const override { return source_.frameCount(); }
    double sampleRate() const override { return source_.sampleRate(); }
    // Allocates the pass's chain and the source's pass.
    std::unique_ptr<ProgrammePass> read() const override;
    // The bus compressor's largest reduction over the passes read so far, dB.
    double maxGR() const { return maxGR_.load(); }

private:
    const Programme& source_;
    MasterParams params_;
    std::vector<LraStep> steps_;
    mutable std::atomic<double> maxGR_ = 0.0;
};

struct RenderPlan {
    std::vector<LraStep> lraSteps;
    // The standard measurement of the programme through the chain and every step, when the
    // planning's last pass already made it (its integrated loudness and 4× true peak then need
    // no pass of their own).
    std::optional<LoudnessResult> measured;
};

// The loudness-range steps of `params` for this source: each measurement renders the source
// through the chain and the steps decided so far (planLRA). None unless lraOn. `progress`
// receives this planning's own fraction, 0 … 1.
Expected<RenderPlan> planRender(const Programme& source, const MasterParams& params, std::span<const double> weights,
                                const ProgressFn& progress = {});

}  // namespace velmora
