#pragma once
// The limits a norm sets on where a programme may go, for listing its events.
#include <optional>

#include "measurement/EventDetector.h"
#include "norms/Presets.h"

namespace velmora {

// The norm's ceiling and maximum short-term loudness; the momentary limit is the user's own.
inline EventLimits eventLimitsFor(const Preset& norm, std::optional<double> momentaryMaxLUFS = std::nullopt) {
    return {norm.ceiling, norm.msLimitLUFS, momentaryMaxLUFS};
}

}  // namespace velmora
