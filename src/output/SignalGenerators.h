#pragma once
// The two fixed signals: the RLL calibration pink noise, written for aligning loudspeakers, and
// the 1 kHz sine that checks the monitoring route (made in audio, where the live monitor plays
// it). Both are bit-identical on every run.
#include <string>
#include <string_view>
#include <vector>

#include "audio/LoudnessError.h"
#include "audio/TestSine.h"
#include "measurement/LoudnessEngine.h"
#include "output/MasterWriter.h"

namespace velmora {

inline constexpr std::string_view rllCalibrationFileName = "RLL_500-2000Hz_-23LUFS_30s.wav";
inline constexpr double rllSeconds = 30.0, rllSampleRate = 48000.0;

// Pink noise band-limited to 500–2000 Hz, mono, at −23 LUFS integrated. Empty for a length
// that is not a positive number of samples.
std::vector<float> generatePinkNoise(double seconds, double sampleRate);

// The 30 s noise at 48 kHz as a mono 24-bit WAV, whatever the destination's extension.
Expected<WriteReport> saveRLLCalibration(const std::string& destination);

}  // namespace velmora
