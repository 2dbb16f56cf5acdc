#pragma once
// Plain listening to the selected file, unprocessed, on the system's default output: its own
// output stream beside the live monitor's, so the monitoring route the user chose is never
// changed by pressing play. The samples are played through the real-time streamer with no
// stage on (fold to stereo, conversion to the device's rate) and metered as they play, so the
// meters show the loudness at the playhead. Main thread only.
#include <memory>
#include <optional>
#include <string>

#include "audio/LiveMonitor.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"

namespace velmora {

class FilePlaybackController {
public:
    FilePlaybackController();
    ~FilePlaybackController();  // stops the stream before the streamer and meter go

    // Prepares `samples` (the file's decoded channels at `fileRate`) under `path`; nothing
    // when that file is already loaded. Nothing plays yet.
    void load(const std::string& path, std::shared_ptr<const Channels> samples, double fileRate);
    const std::string& loadedPath() const { return loadedPath_; }
    bool loaded() const { return samples_ != nullptr; }

    // The message of what went wrong (no output device, a stream that will not start), else nothing.
    std::optional<std::string> play();
    void pause();
    void stop();  // pause and rewind to the start
    bool isPlaying() const { return playing_; }
    // Played to its end: the caller pauses and tells the interface.
    bool finished() const;

    void seek(double seconds);
    double duration() const;  // seconds, 0 when nothing is loaded
    double progress() const;  // 0 … 1
    std::optional<LiveMeter::Readings> levels() const;

private:
    std::optional<std::string> prepareStream();

    std::unique_ptr<LiveMonitor> output_;
    std::shared_ptr<OnlineMasteringStreamer> streamer_;
    std::shared_ptr<LiveMeter> meter_;
    std::shared_ptr<const Channels> samples_;
    std::string loadedPath_;
    double fileRate_ = 0;
    double pendingFraction_ = 0;  // where playback stands while it is not playing (0 … 1)
    bool playing_ = false;
};

}  // namespace velmora
