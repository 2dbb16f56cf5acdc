#pragma once
// The standard measurement of a programme read once from its start, block after block: a file
// decoded again, or a programme rendered through the chain, measured without being held.
#include <span>

#include "audio/ProgrammeStream.h"
#include "audio/Progress.h"
#include "measurement/LoudnessEngine.h"
#include "measurement/ProgrammeDetail.h"

namespace velmora {

// Fails with the pass's error when the programme could not be read to its end. `progress`
// follows the frames read, 0 … 1. With `detail`, also what the measurement keeps beyond its
// figures (ProgrammeDetail.h).
Expected<LoudnessResult> measureStreamed(const Programme& programme, std::span<const double> weights,
                                         const ProgressFn& progress = {}, ProgrammeDetail* detail = nullptr);

}  // namespace velmora
