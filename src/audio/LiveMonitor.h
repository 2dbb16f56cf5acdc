#pragma once
// Real-time listening routed to an output device the user names and two of its channels: the
// output engine of live mastering and of the 1 kHz test tone. Plain C++; the application model
// wraps it and publishes its state.
//
// Threads: every method may be called from any thread, one at a time under a lock that the
// real-time thread never takes. Device changes and the end of a one-shot are handled on the
// monitor's own event thread; the change handler then runs there.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "audio/EventThread.h"
#include "audio/LiveMonitorError.h"
#include "audio/OneShotSource.h"
#include "audio/OutputBackend.h"
#include "audio/PlanarAudio.h"

namespace velmora {

class LiveMonitor {
public:
    static constexpr const char* noDeviceMessage = "Aucune carte son configurée pour le monitoring temps réel.";
    static constexpr const char* disconnectedMessage =
        "Carte son déconnectée. Le mode export A/B WAV reste disponible.";

    // JACK when a server runs, else ALSA, unless `kind` names one.
    explicit LiveMonitor(OutputBackendKind kind = OutputBackendKind::automatic);
    // Stops the stream before anything it pulls from is released.
    ~LiveMonitor();
    LiveMonitor(const LiveMonitor&) = delete;
    LiveMonitor& operator=(const LiveMonitor&) = delete;

    // In the order the audio library lists them; empty without a library to ask.
    std::vector<OutputDevice> listOutputDevices();
    // Where plain playback goes when the user named no device: the output the system plays to
    // (JACK's "system", ALSA's "default"), else the first device listed; nothing without one.
    std::optional<std::string> defaultOutputDeviceUID();
    // Stops what plays and routes the output to the device's channels channelL and channelR
    // (0-based, clamped to the device). On failure nothing is routed and the stored routing is
    // kept, for the next start.
    std::optional<LiveMonitorError> configure(const std::string& uid, std::int64_t channelL, std::int64_t channelR);
    // Stops what plays and plays `source`, built for deviceSampleRate(), until stop(). False with
    // lastError() set on failure (a null source only stops). The monitor holds the source while
    // the stream may pull from it.
    bool start(std::shared_ptr<RenderSource> source);
    // Stops what plays and plays a planar buffer once, folded to stereo and converted to the
    // device's rate. `finished` runs on the event thread once it has been played out (not after
    // a stop).
    void play(const Channels& channels, double sampleRate, std::function<void()> finished = {});
    void stop();
    // Stops what plays and, when the open stream keeps the device from other programs, closes it;
    // the routing is kept, and opened again by the next start or play.
    void release();

    bool isPlaying() const;
    std::string currentDeviceName() const;
    std::optional<std::string> lastError() const;
    // Hz, what sources must render at; 0 while nothing is routed.
    double deviceSampleRate() const;
    // Frames between a render call and the sound leaving the device; 0 while nothing is routed.
    std::size_t latencyFrames() const;
    // Runs on the event thread after each device change or end of a one-shot, once the monitor
    // has reacted: the owner re-reads the monitor (marshalling to its own thread as it needs).
    // It may call the monitor, but must not destroy it.
    void setChangeHandler(std::function<void()> handler);

private:
    std::optional<LiveMonitorError> configureLocked(const std::string& uid, std::int64_t channelL,
                                                    std::int64_t channelR, const std::vector<OutputDevice>& listed);
    // The stored routing's stream, opened again when it was dropped or broke.
    std::optional<LiveMonitorError> ensureStreamLocked();
    std::shared_ptr<OneShotSource> makeOneShot(const Channels& channels, double sampleRate);
    void stopLocked();
    void releaseLocked();
    void onEvents(unsigned events);  // [event thread]
    void reactToDeviceChangeLocked();

    mutable std::mutex mutex_;
    EventThread events_;
    std::unique_ptr<OutputBackend> backend_;
    std::unique_ptr<OutputStream> stream_;
    std::shared_ptr<RenderSource> source_;  // what stream_ pulls from, kept alive until it stops
    std::shared_ptr<OneShotSource> oneShot_;
    std::function<void()> finished_;
    std::function<void()> changeHandler_;

    std::optional<std::string> configuredDeviceUID_;
    std::optional<std::pair<std::int64_t, std::int64_t>> configuredOutChannels_;  // clamped, 0-based
    OutputDevice configuredDevice_;  // as listed when routed: a change to it is a device change
    bool isPlaying_ = false;
    std::string currentDeviceName_;
    std::optional<std::string> lastError_;
};

}  // namespace velmora
