#include "mastering/Equalisers.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "mastering/ParamRanges.h"
#include "measurement/WorkerPool.h"

namespace velmora {

namespace {

// Every design keeps its frequency under Nyquist at the rate it runs at and its Q within the
// knobs' travel, so a stored or hand-written setting can colour the sound but never make the
// sections blow up (a 10 kHz shelf on a 16 kHz file, a Q of zero).
Biquad highPass(double fs, double f) { return designHighPass(fs, underNyquist(f, fs)); }
Biquad lowShelf(double fs, double f, double g) { return designLowShelf(fs, underNyquist(f, fs), g); }
Biquad highShelf(double fs, double f, double g) { return designHighShelf(fs, underNyquist(f, fs), g); }
Biquad peaking(double fs, double f, double g, double q) {
    static const double lowestQ = rangeOf(&MasterParams::b1Q)->low;
    return designPeaking(fs, underNyquist(f, fs), g, std::isnan(q) ? lowestQ : std::max(q, lowestQ));
}

void appendFiveBands(const MasterParams& p, double fs, std::vector<Biquad>& out) {
    if (p.hpfOn) out.push_back(highPass(fs, p.hpfFreq));
    if (std::fabs(p.lsGain) > eqBandGateDB) out.push_back(lowShelf(fs, p.lsFreq, p.lsGain));
    if (std::fabs(p.b1Gain) > eqBandGateDB) out.push_back(peaking(fs, p.b1Freq, p.b1Gain, p.b1Q));
    if (std::fabs(p.b2Gain) > eqBandGateDB) out.push_back(peaking(fs, p.b2Freq, p.b2Gain, p.b2Q));
    if (std::fabs(p.hsGain) > eqBandGateDB) out.push_back(highShelf(fs, p.hsFreq, p.hsGain));
}

void appendTonalBands(const MasterParams& p, double fs, std::vector<Biquad>& out) {
    if (std::fabs(p.tLsGain) > eqBandGateDB) out.push_back(lowShelf(fs, p.tLsFreq, p.tLsGain));
    if (std::fabs(p.tMidGain) > eqBandGateDB) out.push_back(peaking(fs, p.tMidFreq, p.tMidGain, p.tMidQ));
    if (std::fabs(p.tHsGain) > eqBandGateDB) out.push_back(highShelf(fs, p.tHsFreq, p.tHsGain));
}

}  // namespace

std::vector<Biquad> buildFiveBandEQ(const MasterParams& p, double fs) {
    std::vector<Biquad> out;
    if (p.eqOn) appendFiveBands(p, fs, out);
    return out;
}

std::vector<Biquad> buildTonalEQ(const MasterParams& p, double fs) {
    std::vector<Biquad> out;
    if (p.teqOn) appendTonalBands(p, fs, out);
    return out;
}

LiveCascade buildLiveCascade(const MasterParams& p, double fs) {
    LiveCascade cascade;
    appendFiveBands(p, fs, cascade.sections);
    cascade.preCompressor = cascade.sections.size();
    appendTonalBands(p, fs, cascade.sections);
    return cascade;
}

void applyEQ(Channels& channels, const std::vector<Biquad>& sections) {
    if (sections.empty() || channels.empty()) return;
    parallelFor(channels.size(), [&](std::size_t c) {
        applyBiquads(sections.data(), sections.size(), channels[c].data(), channels[c].size());
    });
}

}  // namespace velmora
