// The model's listening: live mastering through the chain on the device the user routed, the
// test tone, and plain playback of the selected file on the default output.
#include <algorithm>

#include "audio/AudioFileReader.h"
#include "audio/LiveMonitor.h"
#include "audio/TestSine.h"
#include "measurement/Diagnostics.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "model/FilePlayback.h"
#include "model/Model.h"

namespace velmora {

namespace {

constexpr int tickMilliseconds = 50;

QString text(const std::string& s) { return QString::fromStdString(s); }

}  // namespace

LiveMonitor& Model::liveMonitor() {
    // Opened at first use: a model that never listens never touches the audio library.
    if (!liveMonitor_) {
        liveMonitor_ = std::make_unique<LiveMonitor>();
        // The monitor reacts on its own thread; the model reads it again on the main thread.
        liveMonitor_->setChangeHandler([this] { post([this] { onLiveMonitorChanged(); }); });
    }
    return *liveMonitor_;
}

std::vector<OutputDevice> Model::outputDevices() { return liveMonitor().listOutputDevices(); }

std::optional<QString> Model::configureLiveMonitor() {
    if (liveMonitorDeviceUID_.isEmpty()) return QStringLiteral("Sélectionnez d'abord une carte son.");
    auto failure = liveMonitor().configure(liveMonitorDeviceUID_.toStdString(), liveMonitorChannelL_, liveMonitorChannelR_);
    assign(liveMonitorDeviceName_, text(liveMonitor().currentDeviceName()), &Model::liveMonitorDeviceNameChanged);
    if (failure) return text(failure->message());
    return std::nullopt;
}

void Model::testLiveMonitor() {
    if (isLiveMastering_) stopLiveMastering();
    if (auto message = configureLiveMonitor()) {
        setGlobalStatus(QStringLiteral("Monitoring : ") + *message);
        return;
    }
    liveMonitor().play(makeTestSine(), testSineSampleRate);
    setGlobalStatus(QStringLiteral("Test 1 kHz sur ") + liveMonitorDeviceName_ + QStringLiteral(" ✓"));
}

std::shared_ptr<const Channels> Model::selectedSamples(QString& why) {
    FileItem* item = selectedID_ ? findItem(*selectedID_) : nullptr;
    if (!item || !item->hasAudio()) {
        why = QStringLiteral("Sélectionnez d'abord un fichier.");
        return nullptr;
    }
    if (!item->channels) {
        const double bytes = double(item->channelTotal) * double(item->frameTotal) * sizeof(float);
        // Listening holds the whole file: a feature film is over that budget.
        if (!worthHoldingBytes(bytes)) {
            why = text(LoudnessError{LoudnessError::Code::tooLarge}.message());
            return nullptr;
        }
        // Decoded on the main thread: a song is read in a blink, and anything longer than the
        // budget is refused above.
        auto audio = loadAudio(item->url, item->isVideo);
        if (!audio || audio->channelCount() != item->channelTotal) {
            why = text(audio ? LoudnessError{LoudnessError::Code::sourceChanged}.message() : audio.error().message());
            return nullptr;
        }
        item->channels = std::make_shared<const Channels>(std::move(audio->channels));
    }
    return item->channels;
}

void Model::startLiveMastering() {
    const FileItem* item = selectedItem();
    QString why;
    const auto samples = selectedSamples(why);
    if (!item || !samples) {
        setGlobalStatus(why);
        return;
    }
    if (auto message = configureLiveMonitor()) {
        setGlobalStatus(QStringLiteral("Master Live : ") + *message);
        return;
    }
    if (isPlaybackPlaying_) {
        playback_->pause();
        setIsPlaybackPlaying(false);
    }
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    if (auto failure = streamer->init(*samples, item->sampleRate, liveMonitor().deviceSampleRate())) {
        setGlobalStatus(QStringLiteral("Master Live : ") + text(failure->message()));
        return;
    }
    streamer->update(mp_, 0.0);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(streamer->renderRate());
    streamer->setLiveMeter(meter);
    liveStreamer_ = streamer;
    liveMeter_ = meter;
    const bool started = liveMonitor().start(streamer);
    setIsLiveMastering(started);
    if (started) {
        setGlobalStatus(QStringLiteral("Master Live ON · ") + liveMonitorDeviceName_ + QStringLiteral(" ▶"));
    } else {
        const auto error = liveMonitor().lastError();
        setGlobalStatus(error ? text(*error) : QStringLiteral("Démarrage échoué."));
        liveStreamer_.reset();
        liveMeter_.reset();
    }
}

void Model::stopLiveMastering() {
    // The stream stops before the streamer and the meter it pulls from are dropped.
    if (liveMonitor_) liveMonitor_->stop();
    liveStreamer_.reset();
    liveMeter_.reset();
    setIsLiveMastering(false);
    setGlobalStatus(QStringLiteral("Master Live OFF"));
}

void Model::onLiveMonitorChanged() {
    if (!liveMonitor_) return;
    assign(liveMonitorDeviceName_, text(liveMonitor_->currentDeviceName()), &Model::liveMonitorDeviceNameChanged);
    // The device went away or changed under the stream: the monitor has stopped it and says why.
    if (isLiveMastering_ && !liveMonitor_->isPlaying()) {
        liveStreamer_.reset();
        liveMeter_.reset();
        setIsLiveMastering(false);
        if (auto error = liveMonitor_->lastError()) setGlobalStatus(text(*error));
    }
}

void Model::togglePlayback() {
    const FileItem* item = selectedItem();
    if (!item) return;
    if (!playback_) playback_ = std::make_unique<FilePlaybackController>();
    if (playback_->isPlaying()) {
        playback_->pause();
        setIsPlaybackPlaying(false);
        return;
    }
    if (isLiveMastering_) stopLiveMastering();
    QString why;
    const auto samples = selectedSamples(why);
    if (!samples) {
        setGlobalStatus(why);
        return;
    }
    playback_->load(item->url, samples, item->sampleRate);
    if (auto failure = playback_->play()) setGlobalStatus(text(*failure));
    setIsPlaybackPlaying(playback_->isPlaying());
}

void Model::stopPlayback() {
    if (playback_) playback_->stop();
    setIsPlaybackPlaying(false);
    emit playbackTick();
}

void Model::seekPlayback(double fraction) {
    fraction = std::clamp(fraction, 0.0, 1.0);
    if (isLiveMastering_ && liveStreamer_) {
        liveStreamer_->seek(fraction);
        return;
    }
    const FileItem* item = selectedItem();
    if (!item) return;
    if (!playback_) playback_ = std::make_unique<FilePlaybackController>();
    if (playback_->loadedPath() != item->url || !playback_->loaded()) {
        QString why;
        const auto samples = selectedSamples(why);
        if (!samples) return;
        playback_->load(item->url, samples, item->sampleRate);
    }
    playback_->seek(fraction * playback_->duration());
    emit playbackTick();
}

void Model::toggleListening() {
    if (liveMonitorEnabled_ && !liveMonitorDeviceUID_.isEmpty()) {
        if (isLiveMastering_) stopLiveMastering();
        else startLiveMastering();
        return;
    }
    togglePlayback();
}

double Model::playPosition() const {
    if (isLiveMastering_ && liveStreamer_) return liveStreamer_->position();
    if (playback_ && selectedItem() && playback_->loadedPath() == selectedItem()->url) return playback_->progress();
    return 0.0;
}

double Model::selectedDuration() const {
    const FileItem* item = selectedItem();
    return item && item->sampleRate > 0 ? double(item->frameTotal) / item->sampleRate : 0.0;
}

std::optional<LiveMeter::Readings> Model::liveLevels() const {
    if (isLiveMastering_ && liveMeter_) return liveMeter_->stats();
    if (isPlaybackPlaying_ && playback_) return playback_->levels();
    return std::nullopt;
}

std::vector<float> Model::displaySpectrum() const {
    const FileItem* item = selectedItem();
    if (!item) return {};
    constexpr std::size_t frameLength = 4096;  // one frame of the display spectrum's FFT
    const bool playing = isPlaybackPlaying_ || isLiveMastering_;
    if (!playing || !item->channels || item->channels->empty() || item->channels->front().size() < frameLength)
        return item->spectrumBins;
    const Channels& all = *item->channels;
    const std::size_t frames = all.front().size();
    const std::size_t at = std::min(std::size_t(std::clamp(playPosition(), 0.0, 1.0) * double(frames)), frames - frameLength);
    Channels frame;
    frame.reserve(all.size());
    for (const auto& channel : all)
        frame.emplace_back(channel.begin() + std::ptrdiff_t(at), channel.begin() + std::ptrdiff_t(at + frameLength));
    return spectrum(frame, 256, item->sampleRate);
}

void Model::onPlaybackTick() {
    if (isPlaybackPlaying_ && playback_ && playback_->finished()) {
        playback_->pause();
        setIsPlaybackPlaying(false);
    }
    emit playbackTick();
}

void Model::setIsLiveMastering(bool v) {
    assign(isLiveMastering_, v, &Model::isLiveMasteringChanged);
    updatePlaybackTimer();
}

void Model::setIsPlaybackPlaying(bool v) {
    assign(isPlaybackPlaying_, v, &Model::isPlaybackPlayingChanged);
    updatePlaybackTimer();
}

void Model::updatePlaybackTimer() {
    if (isLiveMastering_ || isPlaybackPlaying_) {
        if (!playbackTimer_.isActive()) playbackTimer_.start(tickMilliseconds);
    } else {
        playbackTimer_.stop();
    }
}

}  // namespace velmora
