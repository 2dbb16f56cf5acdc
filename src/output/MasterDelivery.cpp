#include "output/MasterDelivery.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <new>

#include "mastering/Conformance.h"
#include "mastering/Limiter.h"
#include "mastering/Render.h"
#include "measurement/BandLimitedPeak.h"
#include "measurement/StreamingMeter.h"

namespace velmora {

namespace {

double toDB(double lin) { return 20.0 * std::log10(std::max(lin, 1e-12)); }
double fromDB(double db) { return std::pow(10.0, db / 20.0); }

// Measures the samples as they go into the file. Both peak readings decide whether the file may
// replace the destination, so an over never does; the same pass gives the measurement of the
// master as written. Channels are measured in parallel while the fine reading runs here.
class WrittenMeter final : public SampleObserver {
public:
    using Verdict = std::function<bool(const WrittenMeter&)>;

    WrittenMeter(std::size_t channels, double sampleRate, std::size_t frames, double ceilingDB, Verdict verdict)
        : verdict_(std::move(verdict)) {
        analyzer_.prepare(channels, sampleRate, frames);
        // Only crests within 1 dB of the ceiling can cross it on a finer reading.
        for (std::size_t c = 0; c < channels; ++c) fine_.emplace_back(fromDB(ceilingDB - 1.0));
    }
    void samplesWritten(std::span<const float* const> channels, std::size_t frames) override {
        pointers_.assign(channels.begin(), channels.end());
        analyzer_.feed(pointers_, frames);
        for (std::size_t c = 0; c < fine_.size(); ++c) fine_[c].process(pointers_[c], frames);
        analyzer_.wait();  // the encoder reuses the block as soon as this returns
    }
    bool acceptWrite() override {
        for (auto& meter : fine_) meter.finish();
        return verdict_(*this);
    }

    double truePeakDB() const { return analyzer_.truePeakDB(); }
    double bandLimitedPeakDB() const {
        double peak = 1e-12;
        for (const auto& meter : fine_) peak = std::max(peak, meter.peak());
        return toDB(peak);
    }
    // The louder of the two readings.
    double peakDB() const { return std::max(truePeakDB(), bandLimitedPeakDB()); }
    const LoudnessAnalyzer& analyzer() const { return analyzer_; }

private:
    LoudnessAnalyzer analyzer_;
    std::vector<BandLimitedPeakMeter> fine_;
    std::vector<const float*> pointers_;
    Verdict verdict_;
};

// The limiter's output as the writer asks for it.
class LimitedSource final : public SampleSource {
public:
    explicit LimitedSource(LimitedProgramme& limited) : limited_(limited) {}
    std::size_t channelCount() const override { return limited_.channelCount(); }
    std::size_t frameCount() const override { return limited_.frameCount(); }
    const float* const* block(std::size_t begin, std::size_t n) override { return limited_.block(begin, n); }

private:
    LimitedProgramme& limited_;
};

// Each retry lowers the aim by the measured excess and this much more, so that the rounding of
// the next conversion cannot land exactly on the ceiling again.
constexpr double retryMarginDB = 0.05;
constexpr int maxLimiterRetries = 3;
constexpr int maxLoudnessCorrections = 2;
// The written master reads within ±0.1 LU of the target; corrections aim well inside that.
constexpr double loudnessToleranceLU = 0.05;
// More limiting than this to reach a target is no longer a master but a crushed programme.
constexpr double maxLimiterReductionDB = 12.0;

// Progress that never goes back when a master is made again.
class Progress {
public:
    explicit Progress(const ProgressFn& fn) : fn_(fn) {}
    void operator()(double f) {
        if (!fn_ || f <= last_) return;
        last_ = f;
        fn_(f);
    }

private:
    const ProgressFn& fn_;
    double last_ = 0.0;
};

// Finds, in memory at the source rate, the gain whose limited buffer reads a given loudness: a
// limiter that works hard gives back only part of each dB of gain, so one step by the missed
// amount falls short. Secant steps on the measured points converge in a few renders, each a
// limiter pass and a measurement, with no write.
class GainSearch {
public:
    GainSearch(const Channels& beforeLimiter, double fs, std::span<const double> weights, double ceilingDB,
               double loudestDB)
        : before_(beforeLimiter), fs_(fs), weights_(weights), ceilingDB_(ceilingDB), loudestDB_(loudestDB) {}

    struct Found {
        double gainDB;
        bool capped;  // the loudest gain allowed still reads under the target
    };

    // The file written at `gainDB` with the limiter `usedExtraDB` lower read `writtenLUFS`. What
    // conversion and quantisation added to the buffer's own loudness they will add again, so the
    // buffer must read the target less that; the next write aims `nextExtraDB` lower.
    Found correct(double gainDB, double usedExtraDB, double writtenLUFS, double targetLUFS, double nextExtraDB) {
        const double asWritten = loudness(gainDB, usedExtraDB);
        const double aim = targetLUFS - (writtenLUFS - asWritten);
        double a = gainDB, Ia = nextExtraDB == usedExtraDB ? asWritten : loudness(a, nextExtraDB);
        double b = std::min(a + (aim - Ia), loudestDB_), Ib = loudness(b, nextExtraDB);
        for (int step = 0; step < maxSteps && std::fabs(Ib - aim) > 0.01; ++step) {
            if (b >= loudestDB_ && Ib < aim) return {loudestDB_, true};
            if (!std::isfinite(Ia) || !std::isfinite(Ib) || b == a) break;
            // Never flatter than 0.05 LU per dB: a stalled limiter would send the gain off to infinity.
            const double slope = std::max((Ib - Ia) / (b - a), 0.05);
            a = b;
            Ia = Ib;
            b = std::min(b + (aim - Ib) / slope, loudestDB_);
            Ib = loudness(b, nextExtraDB);
        }
        return {b, b >= loudestDB_ && Ib < aim - 0.05};
    }

private:
    static constexpr int maxSteps = 8;

    double loudness(double gainDB, double extraDB) const {
        // Measured as it is limited, a block at a time: no copy of the programme.
        LimitedProgramme limited(before_, fs_, fromDB(gainDB), ceilingDB_, extraDB);
        LoudnessAnalyzer analyzer({}, false);
        analyzer.prepare(limited.channelCount(), fs_, limited.frameCount());
        std::vector<const float*> block(limited.channelCount());
        for (std::size_t at = 0; at < limited.frameCount(); at += LimitedProgramme::blockFrames) {
            const std::size_t n = std::min(LimitedProgramme::blockFrames, limited.frameCount() - at);
            const float* const* samples = limited.block(at, n);
            block.assign(samples, samples + block.size());
            analyzer.feed(block, n);
            analyzer.wait();  // the next block reuses the same memory
        }
        return analyzer.result(weights_).integratedLUFS;
    }

    const Channels& before_;
    double fs_;
    std::span<const double> weights_;
    double ceilingDB_, loudestDB_;
};

Expected<DeliveryReport> deliver(const Channels& source, double fs, std::span<const double> weights,
                                 const DeliveryRequest& request, const ProgressFn& progressFn) {
    Progress progress(progressFn);
    progress(0.02);
    std::vector<double> fileWeights;  // in the order the file stores the channels
    for (std::size_t c : fileChannelOrder(source.size(), request.write))
        fileWeights.push_back(c < weights.size() ? weights[c] : 1.0);
    const MasterParams& p = request.params;
    const bool neutralChain = !p.eqOn && !p.compOn && !p.teqOn && !p.lraOn && !p.msOn;
    // With every stage off the programme reaches the limiter as it is: no copy of it is made
    // unless the protection compressor has to change it.
    Channels owned;
    double maxGR = 0.0;
    if (!neutralChain) {
        auto rendered = renderMaster(source, p, fs, weights, [&](double f) { progress(f); });
        owned = std::move(rendered.channels);
        maxGR = rendered.maxGR;
    }
    auto gain = conformityGain(neutralChain ? source : owned, fs, request.targetLUFS, request.ceilingDB, p, weights,
                               neutralChain ? request.sourceIntegratedLUFS : std::nullopt,
                               neutralChain ? request.sourceTruePeakDB : std::nullopt);
    if (!gain) return gain.error();
    if (gain->protect) {
        if (neutralChain) owned = source;
        applyProtection(owned, fs, request.targetLUFS, weights, *gain);
    }
    const Channels& beforeLimiter = owned.empty() ? source : owned;

    DeliveryReport report;
    report.maxGR = maxGR;
    report.protectionAppliedDB = gain->protect ? gain->plannedReductionDB : 0.0;
    report.limiterPasses = 0;

    // The loudest gain the ceiling allows without more than 12 dB of limiting.
    const double aim = fromDB(request.ceilingDB - limiterMarginDB);
    const bool untouched = owned.empty() && request.sourceTruePeakDB;
    const double peak = std::max(untouched ? fromDB(*request.sourceTruePeakDB) : limiterDetectorPeak(beforeLimiter), 1e-12);
    const double loudest = aim * fromDB(maxLimiterReductionDB) / peak;
    bool capped = gain->gainLin > loudest;
    double gainDB = toDB(std::min(gain->gainLin, loudest)), extraDB = 0.0, plainCutDB = 0.0;
    int retries = 0;
    const double C = request.ceilingDB, T = request.targetLUFS;
    const double outputRate = request.write.outputRate > 0 ? request.write.outputRate : fs;

    GainSearch search(beforeLimiter, fs, weights, C, toDB(loudest));
    for (;;) {
        // The limiter's output goes to the file as it is computed; the plain cut is linear, so what
        // it leaves over the ceiling is rounding, and the file is kept.
        LimitedProgramme limited(beforeLimiter, fs, fromDB(gainDB), C, extraDB, plainCutDB);
        LimitedSource source(limited);
        progress(0.65);
        const bool mayCorrect = report.loudnessCorrections < maxLoudnessCorrections && !capped && plainCutDB == 0;
        bool overs = false, off = false;
        double writtenLUFS = 0.0;
        WrittenMeter meter(limited.channelCount(), outputRate, std::size_t(double(limited.frameCount()) * outputRate / fs), C,
                           [&](const WrittenMeter& m) {
                               overs = m.peakDB() > C;
                               writtenLUFS = m.analyzer().result(fileWeights).integratedLUFS;
                               off = std::isfinite(writtenLUFS) && std::fabs(writtenLUFS - T) > loudnessToleranceLU;
                               return (!overs || plainCutDB > 0) && (!off || !mayCorrect);
                           });
        auto written = writeMaster(source, fs, request.write, &meter);
        ++report.limiterPasses;
        if (!written) return written.error();
        report.writtenTruePeakDB = meter.truePeakDB();
        report.writtenBandLimitedPeakDB = meter.bandLimitedPeakDB();
        if (written->committed) {
            report.after = meter.analyzer().result(fileWeights);
            if (request.shortTermCurveStep > 0)
                report.afterShortTerm = meter.analyzer().shortTermCurve(fileWeights, request.shortTermCurveStep);
            report.written = std::move(*written);
            break;
        }
        const double usedExtraDB = extraDB;
        if (overs) {
            // Lower the aim by what came out over; after three tries, cut the same render plainly.
            const double excess = meter.peakDB() - C + retryMarginDB;
            if (retries++ < maxLimiterRetries) extraDB += excess;
            else plainCutDB = excess;
        }
        if (off && mayCorrect) {
            ++report.loudnessCorrections;
            const auto found = search.correct(gainDB, usedExtraDB, writtenLUFS, T, extraDB);
            capped = found.capped;
            gainDB = found.gainDB;
        }
    }
    progress(0.8);
    report.gainDB = gainDB;
    report.extraHeadroomDB = extraDB + plainCutDB;
    if (capped && std::fabs(report.after.integratedLUFS - request.targetLUFS) > 0.1)
        report.targetMissedLUFS = report.after.integratedLUFS;
    progress(1.0);
    return report;
}

}  // namespace

Expected<DeliveryReport> deliverMaster(const Channels& source, double fs, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress) {
    // A programme too long for this machine's memory ends its own master, never the program;
    // whatever was half made is freed on the way out and the destination is left as it was.
    try {
        return deliver(source, fs, weights, request, progress);
    } catch (const std::bad_alloc&) {
        return LoudnessError{LoudnessError::Code::tooLarge};
    }
}

}  // namespace velmora
