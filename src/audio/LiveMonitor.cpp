#include "audio/LiveMonitor.h"

#include <algorithm>
#include <new>

#include "audio/Resample.h"
#include "audio/StereoFold.h"

namespace velmora {

namespace {

const OutputDevice* findDevice(const std::vector<OutputDevice>& devices, const std::string& uid) {
    const auto it = std::find_if(devices.begin(), devices.end(), [&](const OutputDevice& d) { return d.uid == uid; });
    return it == devices.end() ? nullptr : &*it;
}

}  // namespace

LiveMonitor::LiveMonitor(OutputBackendKind kind) : events_([this](unsigned events) { onEvents(events); }) {
    std::lock_guard lock(mutex_);
    backend_ = openOutputBackend(kind, events_);
}

LiveMonitor::~LiveMonitor() {
    // No reaction may run from here on; the event thread is joined without holding the lock it takes.
    events_.stop();
    std::lock_guard lock(mutex_);
    stopLocked();
    stream_.reset();
    backend_.reset();
}

std::vector<OutputDevice> LiveMonitor::listOutputDevices() {
    std::lock_guard lock(mutex_);
    return backend_ ? backend_->devices() : std::vector<OutputDevice>{};
}

std::optional<std::string> LiveMonitor::defaultOutputDeviceUID() {
    std::lock_guard lock(mutex_);
    if (!backend_) return std::nullopt;
    const auto listed = backend_->devices();
    if (const std::string preferred = backend_->defaultDeviceUID(); findDevice(listed, preferred)) return preferred;
    if (listed.empty()) return std::nullopt;
    return listed.front().uid;
}

std::optional<LiveMonitorError> LiveMonitor::configure(const std::string& uid, std::int64_t channelL,
                                                       std::int64_t channelR) {
    std::lock_guard lock(mutex_);
    stopLocked();
    stream_.reset();
    if (!backend_) return LiveMonitorError::noOutputUnit();
    return configureLocked(uid, channelL, channelR, backend_->devices());
}

std::optional<LiveMonitorError> LiveMonitor::configureLocked(const std::string& uid, std::int64_t channelL,
                                                             std::int64_t channelR,
                                                             const std::vector<OutputDevice>& listed) {
    const OutputDevice* device = findDevice(listed, uid);
    if (!device) return LiveMonitorError::deviceNotFound(uid);
    const std::int64_t last = std::max<std::int64_t>(device->outputChannels - 1, 0);
    const std::int64_t l = std::clamp<std::int64_t>(channelL, 0, last), r = std::clamp<std::int64_t>(channelR, 0, last);
    auto opened = backend_->open(*device, std::size_t(l), std::size_t(r));
    if (!opened) return opened.error();
    stream_ = std::move(*opened);
    configuredDeviceUID_ = uid;
    configuredOutChannels_ = {l, r};
    configuredDevice_ = *device;
    currentDeviceName_ = device->name;
    lastError_.reset();
    return std::nullopt;
}

std::optional<LiveMonitorError> LiveMonitor::ensureStreamLocked() {
    if (stream_ && stream_->healthy()) return std::nullopt;
    stream_.reset();
    if (!backend_) return LiveMonitorError::noOutputUnit();
    return configureLocked(*configuredDeviceUID_, configuredOutChannels_->first, configuredOutChannels_->second,
                           backend_->devices());
}

bool LiveMonitor::start(std::shared_ptr<RenderSource> source) {
    std::lock_guard lock(mutex_);
    if (!configuredDeviceUID_) {
        lastError_ = noDeviceMessage;
        return false;
    }
    stopLocked();
    if (!source) return false;
    if (const auto error = ensureStreamLocked()) {
        lastError_ = error->message();
        return false;
    }
    if (const auto failure = stream_->start(source.get())) {
        lastError_ = LiveMonitorError::engineStartFailed(*failure).message();
        return false;
    }
    source_ = std::move(source);
    isPlaying_ = true;
    lastError_.reset();
    return true;
}

void LiveMonitor::play(const Channels& channels, double sampleRate, std::function<void()> finished) {
    std::lock_guard lock(mutex_);
    if (!configuredDeviceUID_) {
        lastError_ = noDeviceMessage;
        return;
    }
    stopLocked();
    if (const auto error = ensureStreamLocked()) {
        lastError_ = error->message();
        return;
    }
    auto shot = makeOneShot(channels, sampleRate);
    if (!shot) {
        lastError_ = LiveMonitorError::bufferCreationFailed().message();
        return;
    }
    if (const auto failure = stream_->start(shot.get())) {
        lastError_ = LiveMonitorError::engineStartFailed(*failure).message();
        return;
    }
    source_ = oneShot_ = std::move(shot);
    finished_ = std::move(finished);
    isPlaying_ = true;
    lastError_.reset();
}

std::shared_ptr<OneShotSource> LiveMonitor::makeOneShot(const Channels& channels, double sampleRate) {
    try {
        StereoSamples stereo = foldToStereo(channels);
        if (stereo.left.empty() || !(sampleRate > 0)) return nullptr;
        const double deviceRate = stream_->sampleRate();
        // Converted whole before the stream starts: the real-time thread only copies.
        if (sampleRate != deviceRate) {
            stereo.left = resample(stereo.left, sampleRate, deviceRate, ResampleQuality::veryHigh);
            stereo.right = resample(stereo.right, sampleRate, deviceRate, ResampleQuality::veryHigh);
            if (stereo.left.empty() || stereo.right.empty()) return nullptr;
        }
        return std::make_shared<OneShotSource>(std::move(stereo.left), std::move(stereo.right),
                                               stream_->latencyFrames(), events_);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void LiveMonitor::stop() {
    std::lock_guard lock(mutex_);
    stopLocked();
}

void LiveMonitor::release() {
    std::lock_guard lock(mutex_);
    releaseLocked();
}

void LiveMonitor::releaseLocked() {
    stopLocked();
    if (backend_ && backend_->holdsDeviceWhileOpen()) stream_.reset();
}

void LiveMonitor::stopLocked() {
    // The stream lets go of the source before the source is released.
    if (stream_) stream_->stop();
    source_.reset();
    oneShot_.reset();
    finished_ = nullptr;
    isPlaying_ = false;
}

void LiveMonitor::onEvents(unsigned events) {
    std::function<void()> finished, handler;
    {
        std::lock_guard lock(mutex_);
        if ((events & OutputEvents::oneShotFinished) && oneShot_ && oneShot_->finished()) {
            finished = std::move(finished_);
            releaseLocked();  // the tone has been heard: the card is free again
        }
        if (events & (OutputEvents::devicesChanged | OutputEvents::streamFailed)) reactToDeviceChangeLocked();
        handler = changeHandler_;
    }
    // Outside the lock: both may call the monitor again.
    if (finished) finished();
    if (handler) handler();
}

void LiveMonitor::reactToDeviceChangeLocked() {
    // Nothing routed (never configured, or the device already reported gone): nothing to undo.
    if (!stream_) return;
    const bool broken = !stream_->healthy();
    const auto listed = backend_->devices();
    const OutputDevice* device = findDevice(listed, *configuredDeviceUID_);
    // Other devices coming and going leave this route alone.
    if (!broken && device && *device == configuredDevice_) return;
    stopLocked();
    stream_.reset();
    if (device) {
        // Playback is not restarted: the user starts it again.
        const auto [left, right] = *configuredOutChannels_;
        if (const auto error = configureLocked(*configuredDeviceUID_, left, right, listed))
            lastError_ = "Reconfiguration impossible : " + error->message();
    } else {
        lastError_ = disconnectedMessage;
        currentDeviceName_.clear();
    }
}

bool LiveMonitor::isPlaying() const {
    std::lock_guard lock(mutex_);
    return isPlaying_;
}

std::string LiveMonitor::currentDeviceName() const {
    std::lock_guard lock(mutex_);
    return currentDeviceName_;
}

std::optional<std::string> LiveMonitor::lastError() const {
    std::lock_guard lock(mutex_);
    return lastError_;
}

double LiveMonitor::deviceSampleRate() const {
    std::lock_guard lock(mutex_);
    return stream_ ? stream_->sampleRate() : 0.0;
}

std::size_t LiveMonitor::latencyFrames() const {
    std::lock_guard lock(mutex_);
    return stream_ ? stream_->latencyFrames() : 0;
}

void LiveMonitor::setChangeHandler(std::function<void()> handler) {
    std::lock_guard lock(mutex_);
    changeHandler_ = std::move(handler);
}

}  // namespace velmora
