#include "model/FilePlayback.h"

#include <algorithm>

namespace velmora {

FilePlaybackController::FilePlaybackController() = default;

FilePlaybackController::~FilePlaybackController() {
    // The output first: its event thread may be calling the change handler, which goes with us.
    output_.reset();
}

LiveMonitor& FilePlaybackController::output() {
    // Opened at the first need: an application that never plays touches no device.
    if (!output_) {
        output_ = std::make_unique<LiveMonitor>();
        output_->setChangeHandler([this] {
            if (changeHandler_) changeHandler_();
        });
    }
    return *output_;
}

void FilePlaybackController::setChangeHandler(std::function<void()> handler) { changeHandler_ = std::move(handler); }

bool FilePlaybackController::hasOutput() { return output().defaultOutputDeviceUID().has_value(); }

void FilePlaybackController::load(StreamShape shape) {
    if (shape.path == shape_.path && shape.frames == shape_.frames && shape.channels == shape_.channels &&
        shape.sampleRate == shape_.sampleRate)
        return;
    if (output_) output_->stop();
    streamer_.reset();
    meter_.reset();
    stream_.reset();
    shape_ = std::move(shape);
    pendingFraction_ = 0;
    playing_ = false;
}

std::optional<std::string> FilePlaybackController::prepareStream() {
    if (!loaded()) return std::nullopt;
    LiveMonitor& out = output();
    if (!out.deviceSampleRate()) {
        const auto device = out.defaultOutputDeviceUID();
        if (!device) return LiveMonitorError::noOutputUnit().message();
        if (auto failure = out.configure(*device, 0, 1)) return failure->message();
    }
    if (stream_ && stream_->renderRate() == out.deviceSampleRate() && !stream_->error()) return std::nullopt;
    // Built for this device's rate, from where playback stands: decoding starts now, on its own thread.
    const double rate = out.deviceSampleRate();
    stream_ = std::make_shared<ListeningStream>(shape_, rate);
    stream_->seekFraction(pendingFraction_);
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    streamer->setSourceHeard(sourceHeard_);
    streamer->setSourceGain(sourceGainDB_);
    streamer->init(stream_);
    streamer->update(chain_, 0.0);
    streamer->setLooping(false);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(rate);
    streamer->setLiveMeter(meter);
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
    // Where it stopped is where it shows, and where a seek made before the next play shows.
    if (playing_ && streamer_) pendingFraction_ = streamer_->position();
    if (output_) output_->release();
    playing_ = false;
}

void FilePlaybackController::stop() {
    pause();
    seek(0.0);
}

bool FilePlaybackController::finished() const { return playing_ && streamer_ && streamer_->atEnd(); }

std::optional<std::string> FilePlaybackController::failure() const {
    if (!playing_) return std::nullopt;
    if (stream_)
        if (const auto error = stream_->error()) return error->message();
    if (output_ && !output_->isPlaying())
        if (const auto error = output_->lastError()) return error;
    return std::nullopt;
}

bool FilePlaybackController::interrupted() const {
    return playing_ && output_ && !output_->isPlaying() && !output_->lastError() && !(stream_ && stream_->error());
}

std::optional<std::string> FilePlaybackController::resume() {
    if (streamer_) pendingFraction_ = streamer_->position();
    playing_ = false;
    return play();
}

void FilePlaybackController::seek(double seconds) {
    const double d = duration();
    const double fraction = d > 0 ? std::clamp(seconds / d, 0.0, 1.0) : 0.0;
    if (streamer_) streamer_->seek(fraction);
    pendingFraction_ = fraction;
}

void FilePlaybackController::setChain(const MasterParams& params) {
    if (params == chain_) return;
    chain_ = params;
    if (streamer_) streamer_->update(chain_, 0.0);
}

void FilePlaybackController::setAB(bool sourceHeard, double sourceGainDB) {
    sourceHeard_ = sourceHeard;
    sourceGainDB_ = sourceGainDB;
    if (streamer_) {
        streamer_->setSourceGain(sourceGainDB);
        streamer_->setSourceHeard(sourceHeard);
    }
}

double FilePlaybackController::duration() const {
    if (!loaded() || shape_.sampleRate <= 0) return 0.0;
    return double(shape_.frames) / shape_.sampleRate;
}

// While paused the position is the one asked for.
double FilePlaybackController::progress() const {
    return playing_ && streamer_ ? streamer_->position() : pendingFraction_;
}

std::optional<LiveMeter::Readings> FilePlaybackController::levels() const {
    if (!meter_) return std::nullopt;
    return meter_->stats();
}

Channels FilePlaybackController::framesAtPlayhead(std::size_t n) const {
    if (!playing_ || !stream_) return {};
    return stream_->framesAtPlayhead(n);
}

}  // namespace velmora
