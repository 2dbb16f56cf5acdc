#include "mastering/RenderedProgramme.h"

#include <algorithm>
#include <cmath>

#include "mastering/StreamingChain.h"
#include "measurement/ProgrammeMeasure.h"

namespace velmora {

namespace {

class RenderedPass final : public ProgrammePass {
public:
    RenderedPass(std::unique_ptr<ProgrammePass> source, std::unique_ptr<StreamingChain> chain,
                 std::atomic<double>& maxGR)
        : source_(std::move(source)), chain_(std::move(chain)), maxGR_(maxGR) {}

    float* const* next(std::size_t n) override {
        float* const* block = source_->next(n);
        if (!block) return nullptr;
        chain_->process(block, n);
        const double gr = chain_->maxGR();
        for (double seen = maxGR_.load(); gr > seen && !maxGR_.compare_exchange_weak(seen, gr);) {
        }
        return block;
    }
    LoudnessError error() const override { return source_->error(); }

private:
    std::unique_ptr<ProgrammePass> source_;
    std::unique_ptr<StreamingChain> chain_;
    std::atomic<double>& maxGR_;
};

}  // namespace

RenderedProgramme::RenderedProgramme(const Programme& source, const MasterParams& params, std::vector<LraStep> lraSteps)
    : source_(source), params_(params), steps_(std::move(lraSteps)) {}

std::unique_ptr<ProgrammePass> RenderedProgramme::read() const {
    auto chain = std::make_unique<StreamingChain>(params_, sampleRate(), channelCount(), steps_);
    return std::make_unique<RenderedPass>(source_.read(), std::move(chain), maxGR_);
}

Expected<RenderPlan> planRender(const Programme& source, const MasterParams& params, std::span<const double> weights,
                                const ProgressFn& progress) {
    // Each measurement's share of the bar: the planner reports where it stands between them.
    double from = 0.0;
    std::vector<LraStep> lastSteps;
    std::optional<LoudnessResult> last;
    const auto measure = [&](const std::vector<LraStep>& steps) {
        const RenderedProgramme through(source, params, steps);
        const double span = 0.1;
        const double start = from;
        auto measured = measureStreamed(through, weights, [&](double f) {
            if (progress) progress(std::min(1.0, start + span * f));
        });
        from = std::min(1.0, start + span);
        if (!measured) return Expected<ProgrammeLoudness>(measured.error());
        lastSteps = steps;
        last = *measured;
        return Expected<ProgrammeLoudness>(ProgrammeLoudness{measured->integratedLUFS, measured->loudnessRange});
    };
    auto steps = planLRA(params, measure, [&](double f) {
        from = std::max(from, f);
        if (progress) progress(f);
    });
    if (!steps) return steps.error();
    RenderPlan plan{std::move(*steps), std::nullopt};
    // A gain step after the last measurement moves its figures by exactly its dB.
    if (last && plan.lraSteps.size() >= lastSteps.size() &&
        std::equal(lastSteps.begin(), lastSteps.end(), plan.lraSteps.begin(),
                   [](const LraStep& a, const LraStep& b) {
                       return a.isGain == b.isGain && a.ratio == b.ratio && a.referenceLUFS == b.referenceLUFS &&
                              a.gain == b.gain;
                   }) &&
        std::all_of(plan.lraSteps.begin() + std::ptrdiff_t(lastSteps.size()), plan.lraSteps.end(),
                    [](const LraStep& s) { return s.isGain; })) {
        double shiftDB = 0.0;
        for (std::size_t k = lastSteps.size(); k < plan.lraSteps.size(); ++k)
            shiftDB += 20.0 * std::log10(double(plan.lraSteps[k].gain));
        last->integratedLUFS += shiftDB;
        last->truePeakDB += shiftDB;
        plan.measured = last;
    }
    return plan;
}

}  // namespace velmora
