#include "ui/EqualiserResponse.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "mastering/Equalisers.h"

namespace velmora {

std::vector<Biquad> fiveBandSections(const MasterParams& params, double sampleRateHz) {
    LiveCascade cascade = buildLiveCascade(params, responseRate(sampleRateHz));
    cascade.sections.resize(cascade.preCompressor);  // the tonal bands after it belong to their own panel
    return cascade.sections;
}

double sectionResponseDB(const Biquad& s, double omega) {
    const std::complex<double> z1 = std::polar(1.0, -omega), z2 = z1 * z1;
    const double numerator = std::abs(s.b0 + s.b1 * z1 + s.b2 * z2);
    const double denominator = std::abs(1.0 + s.a1 * z1 + s.a2 * z2);
    if (denominator < 1e-12) return 0;
    return 20 * std::log10(std::max(numerator / denominator, 1e-9));
}

double cascadeResponseDB(std::span<const Biquad> sections, double frequencyHz, double sampleRateHz) {
    const double omega = 2 * std::numbers::pi * frequencyHz / responseRate(sampleRateHz);
    double db = 0;
    for (const Biquad& s : sections) db += sectionResponseDB(s, omega);
    return db;
}

}  // namespace velmora
