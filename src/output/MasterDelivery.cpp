#include "output/MasterDelivery.h"

#include <cmath>

#include "mastering/Conformance.h"
#include "mastering/Limiter.h"
#include "mastering/Render.h"

namespace velmora {

namespace {

// Checks the true peak of the samples as they go into the file and refuses the file when they
// cross the ceiling, so an over never replaces the destination.
class CeilingGuard final : public SampleObserver {
public:
    CeilingGuard(std::size_t channels, double ceilingDB) : peaks_(channels), ceilingDB_(ceilingDB) {}
    void samplesWritten(std::span<const float* const> channels, std::size_t frames) override {
        peaks_.samplesWritten(channels, frames);
    }
    bool acceptWrite() override { return peaks_.truePeakDB() <= ceilingDB_; }
    double truePeakDB() const { return peaks_.truePeakDB(); }

private:
    TruePeakObserver peaks_;
    double ceilingDB_;
};

// Bounded: each pass lowers the aim by the measured excess, which converges in one or two.
constexpr int maxLimiterPasses = 4;
// Beyond the excess itself, so that rounding in the next conversion cannot land exactly on it.
constexpr double retryMarginDB = 0.05;

}  // namespace

Expected<DeliveryReport> deliverMaster(const Channels& source, double fs, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress) {
    if (progress) progress(0.02);
    auto rendered = renderMaster(source, request.params, fs, weights, progress);
    auto plan = planConformance(std::move(rendered.channels), fs, request.targetLUFS, request.ceilingDB,
                                request.params, weights);
    if (!plan) return plan.error();

    DeliveryReport report;
    report.maxGR = rendered.maxGR;
    report.protectionAppliedDB = plan->protectionAppliedDB;
    report.gainDB = 20.0 * std::log10(plan->gainLin);

    Channels limited;
    for (int pass = 1;; ++pass) {
        limited = Channels{};  // free the refused attempt before making the next
        limited = limitToCeiling(plan->beforeLimiter, fs, plan->gainLin, request.ceilingDB, report.extraHeadroomDB);
        if (progress) progress(0.65);
        CeilingGuard guard(limited.size(), request.ceilingDB);
        auto written = writeMaster(limited, fs, request.write, &guard);
        if (!written) return written.error();
        report.writtenTruePeakDB = guard.truePeakDB();
        report.limiterPasses = pass;
        if (written->committed) {
            report.written = std::move(*written);
            break;
        }
        if (pass == maxLimiterPasses) return LoudnessError{LoudnessError::Code::cannotWrite};
        report.extraHeadroomDB += guard.truePeakDB() - request.ceilingDB + retryMarginDB;
    }
    plan->beforeLimiter = Channels{};  // the limited copy is all that is still needed
    if (progress) progress(0.8);
    report.after = LoudnessEngine::measure(limited, weights, fs);
    if (request.shortTermCurveStep > 0)
        report.afterShortTerm = LoudnessEngine::shortTermCurve(limited, weights, fs, request.shortTermCurveStep);
    if (progress) progress(1.0);
    return report;
}

}  // namespace velmora
