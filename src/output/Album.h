#pragma once
// Album mode: a set of tracks brought to a target together, so the balance between them is
// kept. The album is measured as one programme (the 400 ms blocks of every track gated
// together), one gain goes to every track, and each track keeps its own true-peak limiter.
#include <optional>
#include <span>
#include <vector>

#include "audio/LoudnessError.h"
#include "audio/ProgrammeStream.h"
#include "measurement/LoudnessEngine.h"

namespace velmora {

// One track as the album gating sees it: the weighted energy of each of its 400 ms blocks.
struct AlbumTrack {
    std::vector<double> blockEnergies;  // Σ weight · mean square, per momentary block
    double integratedLUFS = -std::numeric_limits<double>::infinity();  // its own, gated alone
    double truePeakDB = -240.0;
};

// One pass over the programme.
Expected<AlbumTrack> measureAlbumTrack(const Programme& programme, std::span<const double> weights,
                                       const ProgressFn& progress = {});

// BS.1770 gating over every block of every track: the album's integrated loudness.
double albumLoudness(const std::vector<AlbumTrack>& tracks);

// Past this much limiting a track would be crushed: the album's gain comes down for all.
inline constexpr double albumMaxLimitingDB = 12.0;

struct AlbumPlan {
    double albumLUFS = 0.0;  // as measured, before the gain
    double gainDB = 0.0;     // the one gain every track gets
    double loweredDB = 0.0;  // how far it was lowered so no track needs more than 12 dB of limiting
    // The loudness each track is brought to: its own plus the album gain.
    std::vector<double> trackTargets;
};

// Fails with tooQuiet when the album as a whole cannot be measured.
Expected<AlbumPlan> planAlbum(const std::vector<AlbumTrack>& tracks, double targetLUFS, double ceilingDB);

}  // namespace velmora
