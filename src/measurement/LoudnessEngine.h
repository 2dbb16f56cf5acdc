#pragma once
// Loudness measurement after ITU-R BS.1770-4 and EBU R128 / Tech 3342.
//
// Every call designs its filters for the given rate and starts from zero state; nothing
// survives a call. The engine never throws: what cannot be measured is negative infinity
// (or absent for the loudness range). All arithmetic is double over float storage.
#include <array>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "audio/PlanarAudio.h"
#include "audio/Progress.h"
#include "measurement/Biquad.h"

namespace velmora {

struct ProgrammeDetail;
class VoiceActivityDetector;

using BlockEnergies = std::vector<std::vector<double>>;  // per channel, mean square per block

struct LoudnessResult {
    double integratedLUFS = -std::numeric_limits<double>::infinity();
    std::optional<double> loudnessRange;  // LU
    double truePeakDB = -240.0;           // dBTP
    double momentaryMax = -std::numeric_limits<double>::infinity();
    double shortTermMax = -std::numeric_limits<double>::infinity();
    std::optional<double> programmeLUFS;  // dialogue mode only
    // The short-term loudness (LUFS) the range lies between: its 10th and 95th percentiles.
    std::optional<double> loudnessRangeLow{}, loudnessRangeHigh{};
    // Dialogue mode only: the share (0 … 1) of the programme's gated 400 ms blocks that carry
    // speech, and the range of the short-term loudness over the stretches that do (absent when
    // none does).
    std::optional<double> dialogueShare{};
    std::optional<double> dialogueShortTermMin{}, dialogueShortTermMax{};

    // Where the maxima lie, in seconds from the start, so a listener can go and hear them: the
    // start of the loudest 400 ms and 3 s windows, the 43 ms stretch (2048 frames at 48 kHz)
    // where the true peak was first reached, and the first sample of the largest magnitude.
    // Absent when the value could not be measured.
    std::optional<double> momentaryMaxSeconds{}, shortTermMaxSeconds{}, truePeakSeconds{};
    double samplePeakDB = -std::numeric_limits<double>::infinity();  // dBFS
    std::optional<double> samplePeakSeconds{};
};

struct KWeightingFilter {
    Biquad shelf;     // high-frequency shelf, first
    Biquad highPass;  // then the high-pass
};

struct LoudnessEngine {
    static constexpr double loudnessOffset = -0.691;
    static constexpr double absoluteGateLUFS = -70.0;
    static constexpr double relativeGateLU = 10.0;

    static std::size_t momentaryBlockFrames(double fs);  // round(fs · 0.4)
    static std::size_t shortTermBlockFrames(double fs);  // round(fs · 3.0)
    static std::size_t hopFrames(double fs);             // round(fs · 0.1)

    static KWeightingFilter kWeightingCoefficients(double sampleRate);
    // Allocates the filtered copy; channels filtered in parallel.
    static Channels kWeightChannels(const Channels& channels, double sampleRate);
    static std::vector<double> blockMeanSquares(std::span<const float> kWeighted, std::size_t blockFrames,
                                                std::size_t hopFrames);

    static double weightedLoudness(std::span<const double> meanSquares, std::span<const double> weights);
    static double integratedLoudness(const BlockEnergies& blocks, std::span<const double> weights);
    static double maskedIntegratedLoudness(const BlockEnergies& blocks, std::span<const double> weights,
                                           const std::vector<bool>& flags);
    // Which blocks pass both gates of integratedLoudness.
    static std::vector<bool> gatedBlocks(const BlockEnergies& blocks, std::span<const double> weights);
    static double maxBlockLoudness(const BlockEnergies& blocks, std::span<const double> weights);
    static std::optional<double> computeLoudnessRange(const BlockEnergies& shortTermBlocks,
                                                      std::span<const double> weights);
    // The low and high percentiles the range is taken between, LUFS.
    static std::optional<std::pair<double, double>> loudnessRangeEdges(const BlockEnergies& shortTermBlocks,
                                                                       std::span<const double> weights);

    // Linear 4× true peak of one channel, never below its sample peak nor 1e-12.
    static double channelTruePeak(std::span<const float> channel);
    // dBTP over every channel, -240 when there is none.
    static double measureTruePeak(const Channels& channels);

    // momentaryMax and shortTermMax are the loudest 400 ms / 3 s windows on a grid of at most
    // 10 ms, so a burst that straddles two 100 ms blocks is not under-read.
    // With `detail`, also what the measurement keeps beyond its figures (ProgrammeDetail.h).
    static LoudnessResult measure(const Channels& channels, std::span<const double> weights, double sampleRate,
                                  const ProgressFn& progress = {}, ProgrammeDetail* detail = nullptr);
    static LoudnessResult measureDialogue(const Channels& channels, std::span<const double> weights,
                                          double sampleRate, const ProgressFn& progress = {},
                                          ProgrammeDetail* detail = nullptr);
    // The same with another detector, for comparing detectors on the same material.
    static LoudnessResult measureDialogue(const Channels& channels, std::span<const double> weights,
                                          double sampleRate, const ProgressFn& progress,
                                          const VoiceActivityDetector& detector, ProgrammeDetail* detail = nullptr);

    // Short-term loudness (LUFS) of the 3 s window ending every `stepSeconds` from the start,
    // for drawing; -inf where the window is silent or not yet full. Allocates the result and
    // one sum per 100 ms per channel.
    static std::vector<double> shortTermCurve(const Channels& channels, std::span<const double> weights,
                                              double sampleRate, double stepSeconds);
    // The same from short-term blocks already measured (one every 100 ms).
    static std::vector<double> curveFromShortTermBlocks(const BlockEnergies& shortTermBlocks,
                                                        std::span<const double> weights, double sampleRate,
                                                        std::size_t programmeFrames, double stepSeconds);

    // Loudness (LUFS) and sample peak (dBFS) of the window of `windowFrames` ending at `endFrame`.
    static std::pair<double, double> windowedLoudness(const Channels& channels, std::span<const double> weights,
                                                      std::size_t endFrame, std::size_t windowFrames,
                                                      double sampleRate);
};

}  // namespace velmora
