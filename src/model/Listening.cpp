// The model's listening: live mastering through the chain on the device the user routed, the
// test tone, and plain playback of the selected file on the default output.
#include <algorithm>
#include <filesystem>

#include "audio/ListeningStream.h"
#include "audio/LiveMonitor.h"
#include "audio/TestSine.h"
#include "measurement/Diagnostics.h"
#include "audio/NumberFormat.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "model/ABMatch.h"
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
    if (isPlaybackPlaying_) {
        playback_->pause();
        setIsPlaybackPlaying(false);
    }
    if (auto message = configureLiveMonitor()) {
        setGlobalStatus(QStringLiteral("Monitoring : ") + *message);
        return;
    }
    liveMonitor().play(makeTestSine(), testSineSampleRate);
    setGlobalStatus(QStringLiteral("Test 1 kHz sur ") + liveMonitorDeviceName_ + QStringLiteral(" ✓"));
}

namespace {

// What the analysis found in the file: the stream reads it again, and a file that no longer
// matches says so.
StreamShape shapeOf(const FileItem& item) {
    return {item.url, item.isVideo, item.channelTotal, item.frameTotal, item.sampleRate};
}

// Why the selected item cannot be listened to, checked without reading it: nothing selected, or
// its file gone since its analysis. A file that changed is found by the stream as it reads.
std::optional<QString> unplayable(const FileItem* item) {
    if (!item || !item->hasAudio() || item->frameTotal == 0) return QStringLiteral("Sélectionnez d'abord un fichier.");
    std::error_code error;
    if (!std::filesystem::is_regular_file(item->url, error))
        return text(LoudnessError{item->isVideo ? LoudnessError::Code::cannotRead : LoudnessError::Code::sourceChanged}.message());
    return std::nullopt;
}

}  // namespace

FilePlaybackController& Model::playback() {
    if (!playback_) {
        playback_ = std::make_unique<FilePlaybackController>();
        // Reported on the output's event thread; handled on the main thread.
        playback_->setChangeHandler([this] { post([this] { onPlaybackOutputChanged(); }); });
    }
    return *playback_;
}

bool Model::hasAudioOutput() {
    if (!hasAudioOutput_) hasAudioOutput_ = playback().hasOutput();
    return *hasAudioOutput_;
}

void Model::onPlaybackOutputChanged() {
    hasAudioOutput_.reset();
    if (!isPlaybackPlaying_ || !playback_) {
        emit playbackTick();
        return;
    }
    if (playback_->interrupted()) {
        // Its device changed and was routed again: playing goes on from where it was.
        if (auto failure = playback_->resume()) {
            playback_->pause();
            setIsPlaybackPlaying(false);
            setGlobalStatus(text(*failure));
        } else {
            setGlobalStatus(QStringLiteral("Lecture : sortie audio reconfigurée, la lecture continue."));
        }
    } else if (const auto failure = playback_->failure()) {
        playback_->pause();
        setIsPlaybackPlaying(false);
        setGlobalStatus(text(*failure));
    }
    emit playbackTick();
}

void Model::startLiveMastering() {
    const FileItem* item = selectedItem();
    if (const auto why = unplayable(item)) {
        setGlobalStatus(*why);
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
    // Read from the file as it plays, looping, whatever its length: decoding starts now on its
    // own thread, and the stream plays silence until the first frames are there. Live mastering
    // is for hearing the chain: it starts on B.
    setABSourceHeard(false);
    auto streamer = std::make_shared<OnlineMasteringStreamer>();
    streamer->setSourceHeard(false);
    streamer->init(std::make_shared<ListeningStream>(shapeOf(*item), liveMonitor().deviceSampleRate(), 0, true));
    streamer->update(mp_, 0.0);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(streamer->renderRate());
    streamer->setLiveMeter(meter);
    liveStreamer_ = streamer;
    liveMeter_ = meter;
    matchAB();
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
    // The stream stops before the streamer and the meter it pulls from are dropped, and the
    // device is free for other programs.
    if (liveMonitor_) liveMonitor_->release();
    liveStreamer_.reset();
    liveMeter_.reset();
    setIsLiveMastering(false);
    setABSourceHeard(true);  // back to the plain playback's side
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
        setABSourceHeard(true);  // back to the plain playback's side, as a stop does
        if (auto error = liveMonitor_->lastError())
            setGlobalStatus(text(*error));
        else  // routed again to the changed device: it does not restart on its own
            setGlobalStatus(QStringLiteral("Master Live OFF · ") + liveMonitorDeviceName_ +
                            QStringLiteral(" a changé, routage refait : relancez LIVE."));
    }
}

void Model::togglePlayback() {
    const FileItem* item = selectedItem();
    if (!item) return;
    if (playback().isPlaying()) {
        playback_->pause();
        setIsPlaybackPlaying(false);
        return;
    }
    if (isLiveMastering_) stopLiveMastering();
    if (const auto why = unplayable(item)) {
        setGlobalStatus(*why);
        return;
    }
    playback_->load(shapeOf(*item));
    playback_->setChain(mp_);
    matchAB();
    if (auto failure = playback_->play()) setGlobalStatus(text(*failure));
    setIsPlaybackPlaying(playback_->isPlaying());
}

void Model::stopPlayback() {
    abComparing_ = false;
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
    if (const auto why = unplayable(item)) {
        setGlobalStatus(QStringLiteral("Déplacement impossible : ") + *why);
        return;
    }
    // Loading reads nothing: the stream starts at the chosen place on the next play.
    playback().load(shapeOf(*item));
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
    return std::nullopt;
}

std::optional<LiveMeter::Readings> Model::playbackLevels() const {
    if (isPlaybackPlaying_ && playback_) return playback_->levels();
    return std::nullopt;
}

std::vector<float> Model::displaySpectrum() const {
    const FileItem* item = selectedItem();
    if (!item) return {};
    constexpr std::size_t frameLength = 4096;  // one frame of the display spectrum's FFT
    // The frames at the play position, as the decoding thread last saw them: nothing is read
    // again for the display.
    Channels frame;
    if (isLiveMastering_ && liveStreamer_ && liveStreamer_->stream())
        frame = liveStreamer_->stream()->framesAtPlayhead(frameLength);
    else if (isPlaybackPlaying_ && playback_ && playback_->loadedPath() == item->url)
        frame = playback_->framesAtPlayhead(frameLength);
    if (frame.empty()) return item->spectrumBins;
    return spectrum(frame, 256, item->sampleRate);
}

void Model::onPlaybackTick() {
    if (isPlaybackPlaying_ && playback_ && playback_->finished()) {
        playback_->pause();
        setIsPlaybackPlaying(false);
    } else if (isPlaybackPlaying_ && playback_) {
        if (const auto failure = playback_->failure()) {
            playback_->pause();
            hasAudioOutput_.reset();  // the output may be gone for good: asked again
            setIsPlaybackPlaying(false);
            setGlobalStatus(text(*failure));
        }
    }
    if (isLiveMastering_ && liveStreamer_ && liveStreamer_->stream())
        if (const auto error = liveStreamer_->stream()->error()) {
            stopLiveMastering();
            setGlobalStatus(QStringLiteral("Master Live : ") + text(error->message()));
        }
    emit playbackTick();
}

// --- A/B ---------------------------------------------------------------------------------------

namespace {

// "−3.2": the minus of typography, as the rest of a French sentence.
QString signedDB(double dB) {
    QString s = QString::fromStdString(formatSignedOneDecimal(dB));
    if (s.startsWith(QLatin1Char('-'))) s.replace(0, 1, QChar(0x2212));
    return s;
}

}  // namespace

void Model::setABSourceHeard(bool v) { assign(abSourceHeard_, v, &Model::abSourceHeardChanged); }

double Model::abMatchGainDB() const { return abMatcher_ ? abMatcher_->gainDB() : 0.0; }

bool Model::abMatchMeasured() const { return !abMatcher_ || abMatcher_->measured(); }

void Model::matchAB() {
    // The file that plays: live mastering's stream, or plain playback's while it plays.
    std::string path;
    if (liveStreamer_ && liveStreamer_->stream()) path = liveStreamer_->stream()->shape().path;
    else if (playback_ && playback_->loaded()) path = playback_->loadedPath();
    const auto it = std::find_if(queue_.begin(), queue_.end(), [&](const FileItem& i) { return i.url == path; });
    if (path.empty() || it == queue_.end()) return;
    if (!abMatcher_) abMatcher_ = std::make_unique<ABMatcher>([this](std::function<void()> change) { post(std::move(change)); });
    abMatcher_->request(*it, mp_, [this] {
        applyAB();
        // Said when it changes what is heard; B plays as it was.
        if (abSourceHeard_ && (isLiveMastering_ || (isPlaybackPlaying_ && abComparing_))) setGlobalStatus(abStatus());
    });
    applyAB();
}

void Model::applyAB() {
    const double gain = abMatchGainDB();
    if (liveStreamer_) {
        liveStreamer_->setSourceGain(gain);
        liveStreamer_->setSourceHeard(abSourceHeard_);
    }
    if (playback_) playback_->setAB(abSourceHeard_, abComparing_ ? gain : 0.0);
}

QString Model::abStatus() const {
    if (!abSourceHeard_) return QStringLiteral("A/B : B (traité)");
    if (abMatcher_ && abMatcher_->failure())
        return QStringLiteral("A/B : source non ajustée, sonie du traitement non mesurée : ") + *abMatcher_->failure();
    QString line = QStringLiteral("A/B : source ajustée de %1 dB pour l'égalité de sonie").arg(signedDB(abMatchGainDB()));
    if (!abMatchMeasured()) line += QStringLiteral(" (estimation : sonie du traitement en cours de mesure)");
    return line;
}

void Model::toggleAB() {
    abComparing_ = true;
    setABSourceHeard(!abSourceHeard_);
    matchAB();
    if (isLiveMastering_ || isPlaybackPlaying_) setGlobalStatus(abStatus());
    else setGlobalStatus(abSourceHeard_ ? QStringLiteral("A/B : A (source) à la prochaine écoute")
                                        : QStringLiteral("A/B : B (traité) à la prochaine écoute"));
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
