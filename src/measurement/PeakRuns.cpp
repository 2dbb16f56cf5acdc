#include "measurement/PeakRuns.h"

#include <algorithm>
#include <cmath>

#include "measurement/Kernels.h"

namespace velmora {

RunList::RunList(std::size_t gapFrames, std::size_t maxRuns, int channel)
    : gap_(gapFrames), max_(maxRuns), channel_(channel) {
    runs_.reserve(std::min<std::size_t>(maxRuns, 64));
}

void RunList::mark(std::size_t begin, std::size_t end, double value) noexcept {
    if (isOpen_ && begin < open_.endFrame + gap_) {
        open_.endFrame = std::max(open_.endFrame, end);
        open_.peakLin = std::max(open_.peakLin, value);
        return;
    }
    if (isOpen_) {
        if (runs_.size() < max_) runs_.push_back(open_);
        else ++dropped_;
    }
    open_ = {begin, end, value, channel_};
    isOpen_ = true;
}

std::vector<PeakRun> RunList::runs() const {
    std::vector<PeakRun> out = runs_;
    if (isOpen_) out.push_back(open_);
    return out;
}

PeakRunRecorder::PeakRunRecorder(double fs, int channel, std::size_t maxRuns)
    : clips_(std::size_t(std::llround(fs * runMergeSeconds)), maxRuns, channel) {
    const auto gap = std::size_t(std::llround(fs * runMergeSeconds));
    for (std::size_t k = 0; k < overLevelsDB.size(); ++k) {
        levelLin_[k] = std::pow(10.0, overLevelsDB[k] / 20.0);
        over_.emplace_back(gap, maxRuns, channel);
    }
}

double PeakRunRecorder::lowestLevelLin() { return std::pow(10.0, overLevelsDB.front() / 20.0); }

void PeakRunRecorder::readings(const double* r, std::size_t n, std::size_t firstFrame) noexcept {
    constexpr std::size_t delay = kernels::truePeakEnvelopeDelay;
    const double lowest = levelLin_.front();
    for (std::size_t i = 0; i < n; ++i) {
        const double v = r[i];
        if (!(v > lowest)) continue;
        const std::size_t at = firstFrame + i;
        const std::size_t frame = at >= delay ? at - delay : 0;
        for (std::size_t k = 0; k < levelLin_.size() && v > levelLin_[k]; ++k) over_[k].mark(frame, frame + 1, v);
    }
}

void PeakRunRecorder::samples(const float* x, std::size_t n, std::size_t firstFrame) noexcept {
    for (std::size_t i = 0; i < n; ++i) {
        const double a = std::fabs(x[i]);
        if (a >= clippingLevelLin) {
            if (clipCount_ == 0) clipStart_ = firstFrame + i, clipPeak_ = 0.0;
            ++clipCount_;
            clipPeak_ = std::max(clipPeak_, a);
            continue;
        }
        if (clipCount_ >= clippingMinSamples) clips_.mark(clipStart_, clipStart_ + clipCount_, clipPeak_);
        clipCount_ = 0;
    }
}

std::vector<PeakRun> PeakRunRecorder::clipRuns() const {
    if (clipCount_ < clippingMinSamples) return clips_.runs();
    RunList closing = clips_;
    closing.mark(clipStart_, clipStart_ + clipCount_, clipPeak_);
    return closing.runs();
}

}  // namespace velmora
