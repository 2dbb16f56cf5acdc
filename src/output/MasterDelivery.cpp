#include "output/MasterDelivery.h"

#include "audio/NumberFormat.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <new>

#include "mastering/Compressors.h"
#include "mastering/Conformance.h"
#include "mastering/Limiter.h"
#include "mastering/RenderedProgramme.h"
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

    WrittenMeter(std::size_t channels, double sampleRate, std::size_t frames, double ceilingDB, Verdict verdict,
                 std::span<const double> weights = {})
        : verdict_(std::move(verdict)), weights_(weights.begin(), weights.end()) {
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
    std::optional<LoudnessResult> writtenLoudness() const override { return analyzer_.result(weights_); }

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
    std::vector<double> weights_;
};

// One reading of the programme through the stages after the chain: the protection
// compressor when it is called in, then the limiter when one is given, a block at a time and
// in place. `progress` follows the frames read, over its own span of the job.
class StagedPass {
public:
    StagedPass(const Programme& programme, bool protect, std::unique_ptr<StreamingLimiter> limiter,
               std::function<void(double)> progress = {})
        : pass_(programme.read()), channels_(programme.channelCount()), frames_(programme.frameCount()), limiter_(std::move(limiter)),
          progress_(std::move(progress)) {
        if (protect) protection_.emplace(programme.channelCount(), programme.sampleRate());
    }

    float* const* next(std::size_t n) {
        float* const* block = pass_->next(n);
        if (!block) return nullptr;
        if (protection_) protection_->process(block, n);
        if (limiter_) limiter_->process(block, block, n);
        read_ += n;
        if (progress_ && frames_ > 0) progress_(double(read_) / double(frames_));
        return block;
    }
    LoudnessError error() const { return pass_->error(); }

    // Every block into the analyzer; the pass's error when a block could not be read.
    std::optional<LoudnessError> feed(LoudnessAnalyzer& analyzer) {
        std::vector<const float*> block;
        for (std::size_t at = 0; at < frames_; at += ProgrammePass::maxBlockFrames) {
            const std::size_t n = std::min(ProgrammePass::maxBlockFrames, frames_ - at);
            float* const* samples = next(n);
            if (!samples) return error();
            block.assign(samples, samples + channels_);
            analyzer.feed(block, n);
            analyzer.wait();  // the next block reuses the same memory
        }
        return std::nullopt;
    }

private:
    std::unique_ptr<ProgrammePass> pass_;
    std::size_t channels_, frames_, read_ = 0;
    std::optional<StreamingProtection> protection_;
    std::unique_ptr<StreamingLimiter> limiter_;
    std::function<void(double)> progress_;
};

// A staged pass as the writer asks for it.
class StagedSource final : public SampleSource {
public:
    StagedSource(StagedPass& pass, std::size_t channels, std::size_t frames)
        : pass_(pass), channels_(channels), frames_(frames) {}
    std::size_t channelCount() const override { return channels_; }
    std::size_t frameCount() const override { return frames_; }
    const float* const* block(std::size_t, std::size_t n) override { return pass_.next(n); }
    LoudnessError readError() const override { return pass_.error(); }

private:
    StagedPass& pass_;
    std::size_t channels_, frames_;
};

// Each retry lowers the aim by the measured excess and this much more, so that the rounding of
// the next conversion cannot land exactly on the ceiling again.
constexpr double retryMarginDB = 0.05;
constexpr int maxLimiterRetries = 3;
constexpr int maxLoudnessCorrections = 2;
// The written master reads within ±0.1 LU of the target; corrections aim well inside that.
constexpr double loudnessToleranceLU = 0.05;
// Beyond this, a master whose target was not declared out of reach is a failure, never a file:
// something upstream (a setting, a source) went wrong and the report would promise what the file
// is not.
constexpr double missedTargetLU = 0.5;
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

// What reaches the limiter: the programme as it is, or the chain's render, with the protection
// compressor in front when it is called in.
struct LimiterInput {
    const Programme& programme;
    bool protect = false;

    StagedPass read(std::unique_ptr<StreamingLimiter> limiter = {}, std::function<void(double)> progress = {}) const {
        return StagedPass(programme, protect, std::move(limiter), std::move(progress));
    }
    std::unique_ptr<StreamingLimiter> limiter(double gainDB, double ceilingDB, double extraDB = 0.0,
                                              double trimDB = 0.0) const {
        return std::make_unique<StreamingLimiter>(programme.channelCount(), programme.sampleRate(), fromDB(gainDB),
                                                  ceilingDB, extraDB, trimDB);
    }
};

struct Measured {
    double integratedLUFS, truePeakDB;
};

// The limiter's input measured in one pass: its integrated loudness with the standard gating,
// and its 4× true peak.
Expected<Measured> measure(const LimiterInput& input, std::span<const double> weights,
                           std::function<void(double)> progress) {
    LoudnessAnalyzer analyzer({}, false);
    analyzer.prepare(input.programme.channelCount(), input.programme.sampleRate(), input.programme.frameCount());
    auto pass = input.read({}, std::move(progress));
    if (auto failure = pass.feed(analyzer)) return *failure;
    return Measured{analyzer.result(weights).integratedLUFS, analyzer.truePeakDB()};
}

// Finds the gain whose limited programme reads a given loudness, at the source rate and
// without writing: a limiter that works hard gives back only part of each dB of gain, so one
// step by the missed amount falls short. Secant steps on the measured points converge in a few
// passes, each a limiter run and a measurement.
class GainSearch {
public:
    GainSearch(const LimiterInput& input, std::span<const double> weights, double ceilingDB, double loudestDB)
        : input_(input), weights_(weights), ceilingDB_(ceilingDB), loudestDB_(loudestDB) {}

    struct Found {
        double gainDB;
        bool capped;  // the loudest gain allowed still reads under the target
    };

    // The file written at `gainDB` with the limiter `usedExtraDB` lower read `writtenLUFS`. What
    // conversion and quantisation added to the limited programme's own loudness they will add
    // again, so it must read the target less that; the next write aims `nextExtraDB` lower.
    Expected<Found> correct(double gainDB, double usedExtraDB, double writtenLUFS, double targetLUFS,
                            double nextExtraDB) {
        auto asWritten = loudness(gainDB, usedExtraDB);
        if (!asWritten) return asWritten.error();
        const double aim = targetLUFS - (writtenLUFS - *asWritten);
        double a = gainDB, Ia = *asWritten;
        if (nextExtraDB != usedExtraDB) {
            auto again = loudness(a, nextExtraDB);
            if (!again) return again.error();
            Ia = *again;
        }
        double b = std::min(a + (aim - Ia), loudestDB_);
        auto measured = loudness(b, nextExtraDB);
        if (!measured) return measured.error();
        double Ib = *measured;
        for (int step = 0; step < maxSteps && std::fabs(Ib - aim) > 0.01; ++step) {
            if (b >= loudestDB_ && Ib < aim) return Found{loudestDB_, true};
            if (!std::isfinite(Ia) || !std::isfinite(Ib) || b == a) break;
            // Never flatter than 0.05 LU per dB: a stalled limiter would send the gain off to infinity.
            const double slope = std::max((Ib - Ia) / (b - a), 0.05);
            a = b;
            Ia = Ib;
            b = std::min(b + (aim - Ib) / slope, loudestDB_);
            measured = loudness(b, nextExtraDB);
            if (!measured) return measured.error();
            Ib = *measured;
        }
        return Found{b, b >= loudestDB_ && Ib < aim - 0.05};
    }

private:
    static constexpr int maxSteps = 8;

    Expected<double> loudness(double gainDB, double extraDB) const {
        LoudnessAnalyzer analyzer({}, false);
        analyzer.prepare(input_.programme.channelCount(), input_.programme.sampleRate(), input_.programme.frameCount());
        auto pass = input_.read(input_.limiter(gainDB, ceilingDB_, extraDB));
        if (auto failure = pass.feed(analyzer)) return *failure;
        return analyzer.result(weights_).integratedLUFS;
    }

    const LimiterInput& input_;
    std::span<const double> weights_;
    double ceilingDB_, loudestDB_;
};

// What the coding history of a WAV master says was done: the caller's words (the norm), then
// the target and the ceiling.
WriteRequest withProcessingNote(const DeliveryRequest& request) {
    WriteRequest write = request.write;
    std::string note = write.processing;
    if (!note.empty()) note += "; ";
    note += "target " + formatOneDecimal(request.targetLUFS) + " LUFS; ceiling " + formatOneDecimal(request.ceilingDB) +
            " dBTP";
    write.processing = note;
    return write;
}

Expected<DeliveryReport> deliver(const Programme& source, std::span<const double> weights,
                                 const DeliveryRequest& request, const ProgressFn& progressFn) {
    Progress progress(progressFn);
    progress(0.02);
    const std::size_t channels = source.channelCount(), frames = source.frameCount();
    const double fs = source.sampleRate();
    if (channels == 0 || frames == 0) return LoudnessError{LoudnessError::Code::tooQuiet};
    std::vector<double> fileWeights;  // in the order the file stores the channels
    for (std::size_t c : fileChannelOrder(channels, request.write))
        fileWeights.push_back(c < weights.size() ? weights[c] : 1.0);
    const MasterParams& p = request.params;
    const bool neutralChain = !p.eqOn && !p.compOn && !p.teqOn && !p.lraOn && !p.msOn;

    // With every stage off the programme reaches the limiter as it is; otherwise through the
    // chain. Either way each pass reads the source again, so nothing holds the programme.
    std::optional<RenderedProgramme> rendered;
    std::optional<LoudnessResult> renderedMeasure;
    if (!neutralChain) {
        auto plan = planRender(source, p, weights, [&](double f) { progress(0.02 + 0.58 * f); });
        if (!plan) return plan.error();
        renderedMeasure = plan->measured;
        rendered.emplace(source, p, std::move(plan->lraSteps));
    }
    LimiterInput input{rendered ? static_cast<const Programme&>(*rendered) : source};

    // What the conformity gain is computed from: what the caller measured of the untouched
    // source, or a pass over what reaches the limiter.
    const auto within = [&](double from, double to) { return [&, from, to](double f) { progress(from + (to - from) * f); }; };
    Measured m{};
    if (neutralChain && request.sourceIntegratedLUFS && request.sourceTruePeakDB) {
        m = {*request.sourceIntegratedLUFS, *request.sourceTruePeakDB};
    } else if (renderedMeasure) {
        m = {renderedMeasure->integratedLUFS, renderedMeasure->truePeakDB};
    } else {
        auto measured = measure(input, weights, within(0.6, 0.63));
        if (!measured) return measured.error();
        m = *measured;
    }
    auto gain = conformityGain(m.integratedLUFS, m.truePeakDB, request.targetLUFS, request.ceilingDB, p);
    if (!gain) return gain.error();
    if (gain->protect) {
        // The gain is measured again after the protection, as is the peak the limiter will see.
        input.protect = true;
        auto measured = measure(input, weights, within(0.6, 0.65));
        if (!measured) return measured.error();
        m = *measured;
        if (std::isfinite(m.integratedLUFS)) gain->gainLin = std::pow(10.0, (request.targetLUFS - m.integratedLUFS) / 20.0);
    }

    DeliveryReport report;
    report.protectionAppliedDB = gain->protect ? gain->plannedReductionDB : 0.0;
    report.limiterPasses = 0;

    // The loudest gain the ceiling allows without more than 12 dB of limiting.
    const double aim = fromDB(request.ceilingDB - limiterMarginDB);
    const double peak = std::max(fromDB(m.truePeakDB), 1e-12);
    const double loudest = aim * fromDB(maxLimiterReductionDB) / peak;
    bool capped = gain->gainLin > loudest;
    double gainDB = toDB(std::min(gain->gainLin, loudest)), extraDB = 0.0, plainCutDB = 0.0;
    int retries = 0;
    const double C = request.ceilingDB, T = request.targetLUFS;
    const double outputRate = request.write.outputRate > 0 ? request.write.outputRate : fs;

    GainSearch search(input, weights, C, toDB(loudest));
    const WriteRequest write = withProcessingNote(request);
    for (;;) {
        // The limiter's output goes to the file as it is computed; the plain cut is linear, so what
        // it leaves over the ceiling is rounding, and the file is kept.
        StagedPass pass = input.read(input.limiter(gainDB, C, extraDB, plainCutDB), within(0.65, 0.95));
        StagedSource staged(pass, channels, frames);
        const bool mayCorrect = report.loudnessCorrections < maxLoudnessCorrections && !capped && plainCutDB == 0;
        bool overs = false, off = false, missed = false;
        double writtenLUFS = 0.0;
        WrittenMeter meter(channels, outputRate, std::size_t(double(frames) * outputRate / fs), C,
                           [&](const WrittenMeter& w) {
                               overs = w.peakDB() > C;
                               writtenLUFS = w.analyzer().result(fileWeights).integratedLUFS;
                               off = std::isfinite(writtenLUFS) && std::fabs(writtenLUFS - T) > loudnessToleranceLU;
                               // A loudness that cannot be read cannot be corrected either.
                               missed = !capped && (!std::isfinite(writtenLUFS) ||
                                                    (!mayCorrect && std::fabs(writtenLUFS - T) > missedTargetLU));
                               return (!overs || plainCutDB > 0) && (!off || !mayCorrect) && !missed;
                           },
                           fileWeights);
        auto written = writeMaster(staged, fs, write, &meter);
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
        if (missed && (!overs || plainCutDB > 0)) return LoudnessError{LoudnessError::Code::targetNotReached};
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
            if (!found) return found.error();
            capped = found->capped;
            gainDB = found->gainDB;
        }
    }
    report.maxGR = rendered ? rendered->maxGR() : 0.0;
    report.gainDB = gainDB;
    report.extraHeadroomDB = extraDB + plainCutDB;
    if (capped && std::fabs(report.after.integratedLUFS - request.targetLUFS) > 0.1)
        report.targetMissedLUFS = report.after.integratedLUFS;
    progress(1.0);
    return report;
}

}  // namespace

Expected<DeliveryReport> deliverMaster(const Programme& source, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress) {
    // A programme too long for this machine's memory ends its own master, never the program;
    // whatever was half made is freed on the way out and the destination is left as it was.
    try {
        return deliver(source, weights, request, progress);
    } catch (const std::bad_alloc&) {
        return LoudnessError{LoudnessError::Code::tooLarge};
    }
}

Expected<DeliveryReport> deliverMaster(const Channels& source, double fs, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress) {
    return deliverMaster(HeldProgramme(source, fs), weights, request, progress);
}

}  // namespace velmora
