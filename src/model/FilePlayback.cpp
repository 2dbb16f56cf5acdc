#include "model/FilePlayback.h"

#include <algorithm>

namespace velmora {

FilePlaybackController::FilePlaybackController() = default;

FilePlaybackController::~FilePlaybackController() {
    if (output_) output_->stop();
}

void FilePlaybackController::load(const std::string& path, std::shared_ptr<const Channels> samples, double fileRate) {
    if (path == loadedPath_ && samples_) return;
    if (output_) output_->stop();
    streamer_.reset();
    meter_.reset();
    samples_ = std::move(samples);
    loadedPath_ = path;
    fileRate_ = fileRate;
    pendingFraction_ = 0;
    playing_ = false;
}

std::optional<std::string> FilePlaybackController::prepareStream() {
    if (!samples_) return std::nullopt;
    // The output is opened at the first play: an application that never plays touches no device.
    if (!output_) output_ = std::make_unique<LiveMonitor>();
    if (!output_->deviceSampleRate()) {
        const auto device = output_->defaultOutputDeviceUID();
        if (!device) return LiveMonitorError::noOutputUnit().message();
        if (auto failure = output_->configure(*device, 0, 1)) return failure->message();
        streamer_.reset();  // built for another device's rate
    }
    if (streamer_) return std::nullopt;
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    if (auto failure = streamer->init(*samples_, fileRate_, output_->deviceSampleRate())) return failure->message();
    streamer->setLooping(false);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(streamer->renderRate());
    streamer->setLiveMeter(meter);
    streamer->seek(pendingFraction_);
    streamer_ = std::move(streamer);
    meter_ = std::move(meter);
    return std::nullopt;
}

std::optional<std::string> FilePlaybackController::play() {
    if (auto failure = prepareStream()) return failure;
    if (!streamer_) return std::nullopt;
    if (streamer_->atEnd()) streamer_->seek(0.0);  // play again from the start, as players do
    if (!output_->start(streamer_)) {
        playing_ = false;
        return output_->lastError().value_or(LiveMonitorError::engineStartFailed({}).message());
    }
    playing_ = true;
    return std::nullopt;
}

void FilePlaybackController::pause() {
    if (output_) output_->stop();
    // Where it stopped is where it shows, and where a seek made before the next play shows.
    if (playing_ && streamer_) pendingFraction_ = streamer_->position();
    playing_ = false;
}

void FilePlaybackController::stop() {
    pause();
    seek(0.0);
}

bool FilePlaybackController::finished() const { return playing_ && streamer_ && streamer_->atEnd(); }

void FilePlaybackController::seek(double seconds) {
    const double d = duration();
    const double fraction = d > 0 ? std::clamp(seconds / d, 0.0, 1.0) : 0.0;
    if (streamer_) streamer_->seek(fraction);
    pendingFraction_ = fraction;
}

double FilePlaybackController::duration() const {
    if (!samples_ || samples_->empty() || fileRate_ <= 0) return 0.0;
    return double(samples_->front().size()) / fileRate_;
}

// A seek reaches the streamer at its next block: while paused the position is the one asked for.
double FilePlaybackController::progress() const {
    return playing_ && streamer_ ? streamer_->position() : pendingFraction_;
}

std::optional<LiveMeter::Readings> FilePlaybackController::levels() const {
    if (!meter_) return std::nullopt;
    return meter_->stats();
}

}  // namespace velmora
