#include "output/MasterDelivery.h"

#include <cmath>

#include "mastering/Conformance.h"
#include "mastering/Limiter.h"
#include "mastering/Render.h"
#include "measurement/StreamingMeter.h"

namespace velmora {

namespace {

// Measures the samples as they go into the file: their true peak decides whether the file may
// replace the destination, so an over never does, and the same pass gives the measurement of
// the master as written. Channels are measured in parallel while the next block is encoded.
class WrittenMeter final : public SampleObserver {
public:
    WrittenMeter(std::size_t channels, double sampleRate, std::size_t frames, double ceilingDB) : ceilingDB_(ceilingDB) {
        analyzer_.prepare(channels, sampleRate, frames);
    }
    void samplesWritten(std::span<const float* const> channels, std::size_t frames) override {
        pointers_.assign(channels.begin(), channels.end());
        analyzer_.feed(pointers_, frames);
        analyzer_.wait();  // the encoder reuses the block as soon as this returns
    }
    bool acceptWrite() override { return analyzer_.truePeakDB() <= ceilingDB_; }
    const LoudnessAnalyzer& analyzer() const { return analyzer_; }

private:
    LoudnessAnalyzer analyzer_;
    std::vector<const float*> pointers_;
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
    const MasterParams& p = request.params;
    const bool neutralChain = !p.eqOn && !p.compOn && !p.teqOn && !p.lraOn && !p.msOn;
    auto plan = planConformance(std::move(rendered.channels), fs, request.targetLUFS, request.ceilingDB, p, weights,
                                neutralChain ? request.sourceIntegratedLUFS : std::nullopt);
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
        const double outputRate = request.write.outputRate > 0 ? request.write.outputRate : fs;
        const auto expected = std::size_t(double(limited.empty() ? 0 : limited[0].size()) * outputRate / fs);
        WrittenMeter meter(limited.size(), outputRate, expected, request.ceilingDB);
        auto written = writeMaster(limited, fs, request.write, &meter);
        if (!written) return written.error();
        report.writtenTruePeakDB = meter.analyzer().truePeakDB();
        report.limiterPasses = pass;
        if (written->committed) {
            if (progress) progress(0.8);
            // The file may hold the channels in another order than the buffer (WAV's speaker
            // order): each keeps its own weight.
            std::vector<double> fileWeights;
            for (std::size_t source : written->sourceChannels)
                fileWeights.push_back(source < weights.size() ? weights[source] : 1.0);
            report.after = meter.analyzer().result(fileWeights);
            if (request.shortTermCurveStep > 0)
                report.afterShortTerm = meter.analyzer().shortTermCurve(fileWeights, request.shortTermCurveStep);
            report.written = std::move(*written);
            break;
        }
        if (pass == maxLimiterPasses) return LoudnessError{LoudnessError::Code::cannotWrite};
        report.extraHeadroomDB += report.writtenTruePeakDB - request.ceilingDB + retryMarginDB;
    }
    if (progress) progress(1.0);
    return report;
}

}  // namespace velmora
