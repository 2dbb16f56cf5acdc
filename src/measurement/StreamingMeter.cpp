#include "measurement/StreamingMeter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velmora {

namespace {
// Measuring takes the bar from where the measurement's first report (0.02) leaves it to 0.95;
// the results take the rest. Starting from 0 sent the bar back on programmes of more than about
// four minutes, whose first slice is less than 2 % of them.
constexpr double measuringFrom = 0.02, measuringTo = 0.95;
}  // namespace

LoudnessAnalyzer::LoudnessAnalyzer(ProgressFn progress, bool keepSamples)
    : progress_(std::move(progress)), keepSamples_(keepSamples) {}

LoudnessAnalyzer::~LoudnessAnalyzer() { wait(); }

void LoudnessAnalyzer::prepare(std::size_t channelCount, double sampleRate, std::size_t expectedFrames) {
    wait();
    sampleRate_ = sampleRate;
    expectedFrames_ = expectedFrames;
    fed_ = 0;
    unitFrames_ = energyUnitFrames(sampleRate);
    meters_.clear();
    // Only a 5.1 programme is tested for a swapped centre and LFE.
    energies_ = channelCount == 6 || energiesAlways_;
    for (std::size_t c = 0; c < channelCount; ++c) {
        meters_.push_back(std::make_unique<ChannelMeter>(sampleRate, expectedFrames, energies_));
        meters_.back()->recordRuns(int(c));
    }
    pool_ = std::make_unique<WorkerPool>(WorkerPool::threadsFor(channelCount));
    pending_.assign(channelCount, nullptr);
}

void LoudnessAnalyzer::feed(const std::vector<const float*>& channels, std::size_t n) {
    wait();
    if (n == 0 || meters_.empty()) return;
    pending_ = channels;
    pool_->start(meters_.size(), [this, n](std::size_t c) { meters_[c]->process(pending_[c], n); });
    fed_ += n;
    if (!progress_ || expectedFrames_ == 0) return;
    // An estimated length may fall short of the frames that come: the bar then waits at the end
    // of its share.
    const auto share = [this](std::size_t frames) {
        return std::min(measuringTo,
                        measuringFrom + (measuringTo - measuringFrom) * double(frames) / double(expectedFrames_));
    };
    if (share(fed_) > share(fed_ - n)) progress_(share(fed_));
}

void LoudnessAnalyzer::wait() {
    if (pool_) pool_->wait();
}

void LoudnessAnalyzer::started(const PlanarAudio& audio, std::size_t expectedFrames) {
    prepare(audio.channelCount(), audio.sampleRate, expectedFrames);
}

void LoudnessAnalyzer::framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) {
    std::vector<const float*> ptrs(audio.channelCount());
    for (std::size_t c = 0; c < ptrs.size(); ++c) ptrs[c] = audio.channels[c].data() + begin;
    feed(ptrs, end - begin);
}

std::size_t LoudnessAnalyzer::frames() const { return meters_.empty() ? 0 : meters_.front()->frames(); }

BlockEnergies LoudnessAnalyzer::blocks(std::size_t N) const {
    const std::size_t H = LoudnessEngine::hopFrames(sampleRate_);
    const std::size_t L = frames();
    BlockEnergies out(meters_.size());
    if (N == 0 || H == 0 || L < N) return out;
    const std::size_t count = (L - N) / H + 1;
    const std::size_t unitsPerBlock = N / unitFrames_, unitsPerHop = H / unitFrames_;
    for (std::size_t c = 0; c < meters_.size(); ++c) {
        const auto& u = meters_[c]->unitSums();
        out[c].resize(count);
        for (std::size_t j = 0; j < count; ++j) {
            const double* p = u.data() + j * unitsPerHop;
            double s = 0.0;
            for (std::size_t k = 0; k < unitsPerBlock; ++k) s += p[k];
            out[c][j] = s / double(N);
        }
    }
    return out;
}

BlockEnergies LoudnessAnalyzer::momentaryBlocks() const {
    return blocks(LoudnessEngine::momentaryBlockFrames(sampleRate_));
}

BlockEnergies LoudnessAnalyzer::shortTermBlocks() const {
    return blocks(LoudnessEngine::shortTermBlockFrames(sampleRate_));
}

double LoudnessAnalyzer::fineMaximum(std::span<const double> w, std::size_t N) const {
    return fineMaximumAt(w, N).first;
}

std::pair<double, std::optional<std::size_t>> LoudnessAnalyzer::fineMaximumAt(std::span<const double> w,
                                                                              std::size_t N) const {
    constexpr double negInf = -std::numeric_limits<double>::infinity();
    const std::size_t L = frames();
    if (meters_.empty() || N == 0 || L < N) return {negInf, std::nullopt};
    const std::size_t m = N / unitFrames_;
    const std::size_t units = L / unitFrames_;
    std::vector<double> e(units, 0.0);
    for (std::size_t c = 0; c < meters_.size(); ++c) {
        const double weight = c < w.size() ? w[c] : 1.0;
        if (weight == 0.0) continue;
        const auto& u = meters_[c]->unitSums();
        for (std::size_t k = 0; k < units; ++k) e[k] += weight * u[k];
    }
    // A running sum, summed afresh now and then so rounding cannot drift over hours.
    double best = 0.0, running = 0.0;
    std::size_t bestStart = 0;
    for (std::size_t start = 0; start + m <= units; ++start) {
        if (start % 4096 == 0) {
            running = 0.0;
            for (std::size_t k = 0; k < m; ++k) running += e[start + k];
        } else {
            running += e[start + m - 1] - e[start - 1];
        }
        if (running > best) best = running, bestStart = start;
    }
    if (!(best > 0.0)) return {negInf, std::nullopt};
    return {LoudnessEngine::loudnessOffset + 10.0 * std::log10(best / double(N)), bestStart * unitFrames_};
}

std::vector<double> LoudnessAnalyzer::shortTermCurve(std::span<const double> weights, double stepSeconds) const {
    return LoudnessEngine::curveFromShortTermBlocks(shortTermBlocks(), weights, sampleRate_, frames(), stepSeconds);
}

double LoudnessAnalyzer::truePeakDB() const {
    if (meters_.empty()) return -240.0;
    double peak = 1e-12;
    for (const auto& m : meters_) peak = std::max(peak, m->truePeak());
    return 20.0 * std::log10(peak);
}

std::vector<ChannelEnergy> LoudnessAnalyzer::channelEnergies() const {
    std::vector<ChannelEnergy> out;
    if (!energies_) return out;
    for (std::size_t c = 0; c < meters_.size(); ++c) {
        const double L = double(meters_[c]->frames());
        out.push_back({int(c), L > 0 ? meters_[c]->sumOfSquares() / L : 0.0,
                       L > 0 ? meters_[c]->subBassSumOfSquares() / L : 0.0});
    }
    return out;
}

LoudnessResult LoudnessAnalyzer::result(std::span<const double> w) const {
    LoudnessResult r;
    const auto momentary = momentaryBlocks();
    const auto shortTerm = shortTermBlocks();
    r.integratedLUFS = LoudnessEngine::integratedLoudness(momentary, w);
    if (const auto edges = LoudnessEngine::loudnessRangeEdges(shortTerm, w)) {
        r.loudnessRange = edges->second - edges->first;
        r.loudnessRangeLow = edges->first;
        r.loudnessRangeHigh = edges->second;
    }
    const auto seconds = [this](std::optional<std::size_t> frame) -> std::optional<double> {
        if (!frame || !(sampleRate_ > 0)) return std::nullopt;
        return double(*frame) / sampleRate_;
    };
    const auto [momentaryMax, momentaryAt] = fineMaximumAt(w, LoudnessEngine::momentaryBlockFrames(sampleRate_));
    const auto [shortTermMax, shortTermAt] = fineMaximumAt(w, LoudnessEngine::shortTermBlockFrames(sampleRate_));
    r.momentaryMax = momentaryMax;
    r.momentaryMaxSeconds = seconds(momentaryAt);
    r.shortTermMax = shortTermMax;
    r.shortTermMaxSeconds = seconds(shortTermAt);
    r.truePeakDB = truePeakDB();
    // The channel that holds each peak tells where it lies; the first such channel on a tie.
    const TruePeakMeter* truePeakHolder = nullptr;
    const TruePeakMeter* samplePeakHolder = nullptr;
    for (const auto& m : meters_) {
        const TruePeakMeter& p = m->peaks();
        if (m->frames() == 0) continue;
        if (!truePeakHolder || p.peak() > truePeakHolder->peak()) truePeakHolder = &p;
        if (p.samplePeak() > 0 && (!samplePeakHolder || p.samplePeak() > samplePeakHolder->samplePeak()))
            samplePeakHolder = &p;
    }
    if (truePeakHolder && truePeakHolder->peak() > 1e-12) r.truePeakSeconds = seconds(truePeakHolder->peakFrame());
    if (samplePeakHolder) {
        r.samplePeakDB = 20.0 * std::log10(samplePeakHolder->samplePeak());
        r.samplePeakSeconds = seconds(samplePeakHolder->samplePeakFrame());
    }
    return r;
}

}  // namespace velmora
