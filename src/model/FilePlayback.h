#pragma once
// Plain listening to the selected file on the system's default output: its own output stream
// beside the live monitor's, so the monitoring route the user chose is never changed by pressing
// play. The file is read as it plays (a ListeningStream: decoded, folded to stereo and converted
// to the device's rate on a thread of its own) through the real-time streamer, and metered as it
// plays, so the loudness at the playhead is known. What is heard is the A/B switch's side: the
// source (at the gain that matches it to the chain's loudness, none while the chain does
// nothing) or the chain's output. Nothing is read before the first play. Main thread only.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "audio/ListeningStream.h"
#include "audio/LiveMonitor.h"
#include "mastering/LiveMeter.h"
#include "mastering/OnlineMasteringStreamer.h"

namespace velmora {

class FilePlaybackController {
public:
    FilePlaybackController();
    ~FilePlaybackController();  // stops the stream before the streamer and meter go

    // The file to play from now on; nothing when it is already the one. Nothing is read yet.
    void load(StreamShape shape);
    const std::string& loadedPath() const { return shape_.path; }
    bool loaded() const { return !shape_.path.empty(); }

    // The message of what went wrong (no output device, a stream that will not start), else nothing.
    std::optional<std::string> play();
    // Stops, and lets the device go for other programs.
    void pause();
    void stop();  // pause and rewind to the start
    bool isPlaying() const { return playing_; }
    // Played to its end: the caller pauses and tells the interface.
    bool finished() const;
    // While playing: why it cannot go on (the device went away, the file cannot be read any
    // more), else nothing. The caller pauses and shows it.
    std::optional<std::string> failure() const;
    // While playing, the output stopped under it with no error: its device changed and was
    // routed again. resume() plays on from where it was; a failure says why it cannot.
    bool interrupted() const;
    std::optional<std::string> resume();

    void seek(double seconds);
    double duration() const;  // seconds, 0 when nothing is loaded
    double progress() const;  // 0 … 1
    std::optional<LiveMeter::Readings> levels() const;
    // The file's own frames at the playhead while it plays, for the spectrum; empty otherwise.
    Channels framesAtPlayhead(std::size_t n) const;

    // The chain the B side plays through, and the side heard with the source side's gain (dB);
    // heard from the next block while playing, kept for the next stream otherwise.
    void setChain(const MasterParams& params);
    void setAB(bool sourceHeard, double sourceGainDB);

    // Runs on the output's event thread when its device changes or goes away.
    void setChangeHandler(std::function<void()> handler);
    // Whether any output exists to play to.
    bool hasOutput();

private:
    std::optional<std::string> prepareStream();
    LiveMonitor& output();

    std::unique_ptr<LiveMonitor> output_;
    std::function<void()> changeHandler_;
    std::shared_ptr<ListeningStream> stream_;
    std::shared_ptr<OnlineMasteringStreamer> streamer_;
    std::shared_ptr<LiveMeter> meter_;
    StreamShape shape_;
    MasterParams chain_;
    bool sourceHeard_ = true;
    double sourceGainDB_ = 0;
    double pendingFraction_ = 0;  // where playback stands while it is not playing (0 … 1)
    bool playing_ = false;
};

}  // namespace velmora
