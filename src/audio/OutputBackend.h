#pragma once
// The one seam between Velmora and an audio library: list output devices, open one routed to
// two of its channels, and pull blocks from a RenderSource on the library's real-time thread.
// The live monitor and playback see only this.
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "audio/LiveMonitorError.h"
#include "audio/LoudnessError.h"
#include "audio/OutputDevice.h"
#include "audio/OutputEvents.h"
#include "audio/RenderSource.h"

namespace velmora {

// One device opened with its channel pair. Destroying it stops it and undoes its routing.
class OutputStream {
public:
    virtual ~OutputStream() = default;

    // Hz, fixed for the stream's life: sources render at this rate.
    virtual double sampleRate() const = 0;
    // Frames between a render call and the sound leaving the device.
    virtual std::size_t latencyFrames() const = 0;
    // [control thread] Pulls from `source` on the real-time thread, starting the stream when it is
    // stopped; a source already playing is replaced, and on return is no longer touched. The
    // source must outlive its use. Nothing, or the library's description of the failure.
    virtual std::optional<std::string> start(RenderSource* source) = 0;
    // [control thread] On return no source is touched any more.
    virtual void stop() = 0;
    // [any thread] False once the stream has broken (server gone, device error): it stays silent.
    virtual bool healthy() const = 0;
};

class OutputBackend {
public:
    virtual ~OutputBackend() = default;

    // [control thread] Allocates. The devices in the order the library lists them.
    virtual std::vector<OutputDevice> devices() = 0;
    // The uid of the output the system itself plays to (JACK's sound card, ALSA's "default"
    // PCM); it may be missing from devices().
    virtual std::string defaultDeviceUID() const = 0;
    // True when an open stream keeps the device from other programs (an ALSA card): it is then
    // closed whenever nothing plays.
    virtual bool holdsDeviceWhileOpen() const { return false; }
    // [control thread] Opens `device` (as listed) with its channels `left` and `right`, 0-based and
    // within range: the left signal goes to `left`, the right one to `right`; when they are the
    // same channel it carries the right signal only. No other channel or port is touched. One
    // stream at a time: close the previous one first.
    virtual Expected<std::unique_ptr<OutputStream>, LiveMonitorError> open(const OutputDevice& device,
                                                                           std::size_t left, std::size_t right) = 0;
};

enum class OutputBackendKind { automatic, jack, alsa };

// JACK, connecting to a running server and never starting one; nullptr when none answers.
std::unique_ptr<OutputBackend> openJackBackend(OutputEvents& events);
// ALSA's PCMs, hardware and those of the ALSA configuration; nullptr when ALSA cannot be read.
std::unique_ptr<OutputBackend> openAlsaBackend(OutputEvents& events);
// JACK when a server runs (a PipeWire desktop serves JACK too), else ALSA.
std::unique_ptr<OutputBackend> openOutputBackend(OutputBackendKind kind, OutputEvents& events);

}  // namespace velmora
