#pragma once
// Where one channel goes over: runs of 4× readings above a few fixed levels, and runs of samples
// at full scale. They are kept while measuring so that the overs for any norm's ceiling can be
// listed afterwards without decoding the file again.
//
// Construction allocates a little; recording allocates only when a run list outgrows what it
// reserved, never past `maxRuns` runs per list (the rest are counted, not kept).
#include <array>
#include <cstddef>
#include <vector>

namespace velmora {

struct PeakRun {
    std::size_t startFrame = 0;  // first frame over
    std::size_t endFrame = 0;    // one past the last frame over
    double peakLin = 0.0;        // highest reading of the run, linear
    int channel = 0;
};

// Levels (dBTP, ascending) at which true-peak runs are kept: every ceiling a norm sets, and
// lower ones so a ceiling set by hand still finds its overs.
inline constexpr std::array<double, 6> overLevelsDB{-10.0, -6.0, -3.0, -2.0, -1.0, 0.0};
// A sample this close to full scale counts as clipped; three in a row make a clipped passage
// (a single full-scale sample is a legitimate peak).
inline constexpr double clippingLevelLin = 0.999;
inline constexpr std::size_t clippingMinSamples = 3;
// Overs closer than this are one passage: a listener hears one event, not each waveform crest.
inline constexpr double runMergeSeconds = 0.1;

// Runs merged when they come less than `gapFrames` apart.
class RunList {
public:
    RunList(std::size_t gapFrames, std::size_t maxRuns, int channel);
    void mark(std::size_t begin, std::size_t end, double valueLin) noexcept;
    // Closed runs and the open one.
    std::vector<PeakRun> runs() const;
    std::size_t dropped() const { return dropped_; }

private:
    std::size_t gap_, max_;
    int channel_;
    std::vector<PeakRun> runs_;
    PeakRun open_{};
    bool isOpen_ = false;
    std::size_t dropped_ = 0;
};

class PeakRunRecorder {
public:
    PeakRunRecorder(double sampleRate, int channel, std::size_t maxRuns = 4096);

    // reading[i] is the interpolated reading near frame firstFrame + i − truePeakEnvelopeDelay.
    void readings(const double* reading, std::size_t n, std::size_t firstFrame) noexcept;
    void samples(const float* x, std::size_t n, std::size_t firstFrame) noexcept;
    // Whether a clipped stretch is still open: the next samples must be scanned to close it,
    // even when none of them is at full scale.
    bool inClippedStretch() const { return clipCount_ > 0; }
    static double lowestLevelLin();

    std::vector<PeakRun> overRuns(std::size_t level) const { return over_[level].runs(); }
    std::vector<PeakRun> clipRuns() const;
    // Runs not kept once a list was full.
    std::size_t droppedOverRuns(std::size_t level) const { return over_[level].dropped(); }
    std::size_t droppedClipRuns() const { return clips_.dropped(); }

private:
    std::array<double, overLevelsDB.size()> levelLin_{};
    std::vector<RunList> over_;
    RunList clips_;
    std::size_t clipStart_ = 0, clipCount_ = 0;
    double clipPeak_ = 0.0;
};

}  // namespace velmora
