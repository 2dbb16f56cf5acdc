#pragma once
// The before/after pair for auditioning in any player: the same centred 30 s of the source,
// untouched and through the chain, conformity gain and limiter.
#include <span>
#include <string>

#include "audio/LoudnessError.h"
#include "audio/ProgrammeStream.h"
#include "mastering/MasterParams.h"
#include "output/MasterWriter.h"

namespace velmora {

struct ABRequest {
    std::string sourcePath;  // the pair is written beside it
    MasterParams params;
    double targetLUFS = -23.0;
    double ceilingDB = -1.0;
    BitDepth depth = BitDepth::int24;
    std::optional<SpeakerLayout> layout;  // nothing: the writer's default for the count
};

struct ABFiles {
    std::string before;  // "<name>_AB_AVANT.wav"
    std::string after;   // "<name>_AB_APRES.wav"
};

std::string abBeforePath(const std::string& sourcePath);
std::string abAfterPath(const std::string& sourcePath);

// Always WAV at the source's rate. The "after" excerpt gets the conformity gain of its own
// 30 s and the limiter, without the protection compressor; when it cannot be measured it is
// written as the chain left it. The first failed write ends the work.
Expected<ABFiles> generateABExcerpts(const Channels& source, double sampleRate, std::span<const double> weights,
                                     const ABRequest& request);
// The same from a programme read once, of which only the excerpt is kept.
Expected<ABFiles> generateABExcerpts(const Programme& source, std::span<const double> weights, const ABRequest& request);

}  // namespace velmora
