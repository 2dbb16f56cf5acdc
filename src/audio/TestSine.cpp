#include "audio/TestSine.h"

#include <cmath>
#include <numbers>

namespace velmora {

Channels makeTestSine() {
    constexpr std::size_t frames = 96000, period = 48;  // 1 kHz at 48 kHz
    std::vector<float> sine(frames);
    // The phase is taken modulo the period so every period holds the very same samples.
    for (std::size_t k = 0; k < frames; ++k)
        sine[k] = float(0.0707 * std::sin(2.0 * std::numbers::pi * double(k % period) / double(period)));
    return {sine, sine};
}

}  // namespace velmora
