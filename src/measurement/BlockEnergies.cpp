#include <algorithm>
#include <cmath>
#include <numeric>

#include "measurement/ChannelMeter.h"
#include "measurement/Diagnostics.h"

namespace velmora {

namespace {
std::size_t roundHalfAway(double x) { return std::size_t(std::llround(x)); }
}  // namespace

std::size_t LoudnessEngine::momentaryBlockFrames(double fs) { return roundHalfAway(fs * 0.4); }
std::size_t LoudnessEngine::shortTermBlockFrames(double fs) { return roundHalfAway(fs * 3.0); }
std::size_t LoudnessEngine::hopFrames(double fs) { return roundHalfAway(fs * 0.1); }

std::vector<double> LoudnessEngine::blockMeanSquares(std::span<const float> x, std::size_t N, std::size_t H) {
    std::vector<double> out;
    if (N == 0 || H == 0 || x.size() < N) return out;
    const std::size_t count = (x.size() - N) / H + 1;
    out.reserve(count);
    for (std::size_t j = 0; j < count; ++j) out.push_back(kernels::sumOfSquares(x.data() + j * H, N) / double(N));
    return out;
}

std::size_t energyUnitFrames(double fs) {
    const std::size_t common = std::gcd(std::gcd(LoudnessEngine::hopFrames(fs), LoudnessEngine::momentaryBlockFrames(fs)),
                                        LoudnessEngine::shortTermBlockFrames(fs));
    const std::size_t limit = std::max<std::size_t>(1, std::size_t(fs * 0.01));
    if (common == 0) return 1;
    for (std::size_t d = std::min(common, limit); d > 1; --d)
        if (common % d == 0) return d;
    return 1;
}

ChannelMeter::ChannelMeter(double fs, std::size_t expectedFrames, bool energies)
    : sampleRate_(fs), filter_(LoudnessEngine::kWeightingCoefficients(fs)), unitFrames_(energyUnitFrames(fs)), energies_(energies),
      subBass_{subBassLowPass(fs), identitySection} {
    units_.reserve(expectedFrames / unitFrames_ + 2);
}

void ChannelMeter::process(const float* in, std::size_t n) noexcept {
    truePeak_.process(in, n);
    frames_ += n;
    if (energies_) {
        plainSum_ += kernels::sumOfSquares(in, n);
        subSum_ += kernels::kWeight(subBass_, subState_, in, nullptr, n);
    }
    while (n > 0) {
        const std::size_t m = std::min(n, unitFrames_ - unitFill_);
        unitSum_ += kernels::kWeight(filter_, state_, in, nullptr, m);
        unitFill_ += m;
        in += m;
        n -= m;
        if (unitFill_ == unitFrames_) {
            units_.push_back(unitSum_);
            unitSum_ = 0.0;
            unitFill_ = 0;
        }
    }
}

}  // namespace velmora
