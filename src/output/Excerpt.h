#pragma once
// The stretch of a file that the A/B pair lets the user audition.
#include "audio/ProgrammeStream.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// The centred `seconds` of every channel: N = min(F, integer part of rate × seconds) frames
// from (F − N) / 2. Anything no longer than that is returned whole.
Channels excerpt(const Channels& channels, double sampleRate, double seconds = 30.0);
// The same stretch read from a programme in one pass that keeps only the stretch: what comes
// before it is read and let go.
Expected<Channels> excerpt(const Programme& programme, double seconds = 30.0);

}  // namespace velmora
