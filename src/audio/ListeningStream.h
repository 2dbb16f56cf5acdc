#pragma once
// A file heard as it is read: a thread of its own decodes it, folds it to stereo and converts it
// to the device's rate, a little ahead of the real-time thread, into a lock-free ring. Whatever
// the file's length, the stream holds well under a second of it, and the same samples come out
// as from the whole file folded and converted at once.
//
//   auto stream = std::make_shared<ListeningStream>(shape, deviceRate);   // main thread
//   stream->read(frames, left, right);       // render thread, block after block
//   stream->seek(frame);                     // main thread: heard once the ring has refilled
//
// Threads: read() is the real-time thread's alone; every other call is the main thread's. A seek
// bumps a generation: the decoding thread restarts at the new place and marks where in the ring
// the new generation begins; read() drops what came before it and renders silence until it has
// frames of the generation asked for, so it never waits. Looping goes through the same ring with
// no restart of the generation: the start is decoded again while the end still plays.
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "audio/AudioFileReader.h"
#include "audio/LoudnessError.h"
#include "audio/PlanarAudio.h"

namespace velmora {

// What the file holds, as its analysis found it: a decode that gives another channel count or
// rate fails with sourceChanged.
struct StreamShape {
    std::string path;
    bool isVideo = false;
    std::size_t channels = 0;
    std::size_t frames = 0;  // at the file's rate
    double sampleRate = 0;   // Hz
};

// The shape of a file without keeping its samples: its header for plain PCM, else a decode that
// only counts. For a caller that has no analysis to go by.
Expected<StreamShape> probeStreamShape(const std::string& path, bool isVideo);

class ListeningStream {
public:
    struct Block {
        std::size_t frames = 0;  // of the file, from the start of the block; the rest is silence
        bool restarted = false;  // a seek took effect at the start of this block
    };

    // Starts decoding at frame `startFrame` (at `renderRate`). Looping: when the end is reached,
    // the file starts again at frame 0.
    ListeningStream(StreamShape shape, double renderRate, std::int64_t startFrame = 0, bool looping = false);
    ~ListeningStream();  // stops and joins the decoding thread
    ListeningStream(const ListeningStream&) = delete;
    ListeningStream& operator=(const ListeningStream&) = delete;

    // [render thread] Fills `frames` frames of both channels: what the ring holds for the
    // generation asked for, then silence. A block never crosses the end of the file: the one that
    // reaches it is completed with silence, and the next begins the next lap.
    Block read(std::size_t frames, float* left, float* right) noexcept;

    // [main thread] Restarts at `frame` (clamped to the length, at the render rate).
    void seek(std::int64_t frame);
    void seekFraction(double fraction);  // 0 … 1, NaN to the start
    void setLooping(bool on);
    bool looping() const { return looping_.load(std::memory_order_relaxed); }

    // [any thread] The frame the next block starts at; once a seek is asked for, where it goes.
    std::int64_t playhead() const noexcept;
    double position() const noexcept;  // the playhead as a fraction, 0 when empty
    // Played to the end, not looping, and no seek pending.
    bool atEnd() const noexcept;
    std::int64_t totalFrames() const noexcept { return totalFrames_; }  // at the render rate
    double renderRate() const noexcept { return renderRate_; }
    const StreamShape& shape() const { return shape_; }

    // [main thread] Why the file could not be read (then the stream stays silent), else nothing.
    std::optional<LoudnessError> error() const;
    // [main thread] The file's own `n` frames of every channel, at its rate, from the playhead
    // on, when the decoder still holds them; empty otherwise. For the spectrum display.
    Channels framesAtPlayhead(std::size_t n) const;

private:
    // 16 bits of generation over 48 bits of frame, one atomic word: both are always read together.
    static constexpr int generationShift = 48;
    static constexpr std::uint64_t frameMask = (std::uint64_t{1} << generationShift) - 1;
    static std::uint64_t pack(std::uint64_t generation, std::uint64_t value) {
        return (generation << generationShift) | (value & frameMask);
    }

    class Decoder;
    void run();  // [decoding thread]
    bool produce(Decoder& decoder);
    bool push(const float* left, const float* right, std::size_t n, std::uint64_t generation);
    void keepHistory(const float* const* channels, std::size_t n);
    void fail(LoudnessError error);
    bool superseded(std::uint64_t generation) const;

    const StreamShape shape_;
    const double renderRate_;
    const std::int64_t totalFrames_;
    const std::size_t capacity_;  // frames of the ring, a power of two
    std::vector<float> ringL_, ringR_;

    std::atomic<std::uint64_t> request_;          // the generation asked for and its frame
    std::atomic<std::uint64_t> generationStart_;  // the decoder's generation and its first ring index
    std::atomic<std::uint64_t> written_{0};       // ring indices, never wrapped
    std::atomic<std::uint64_t> read_{0};
    std::atomic<std::int64_t> playhead_{0};
    std::atomic<std::uint64_t> playing_{0};       // the generation read() plays
    std::atomic<bool> looping_;
    std::atomic<bool> cancelled_{false};
    std::atomic<int> failure_{-1};                // a LoudnessError::Code, -1 for none

    // The file's recent frames, for framesAtPlayhead(), under historyMutex_.
    mutable std::mutex historyMutex_;
    std::vector<std::vector<float>> history_;
    std::int64_t historyEnd_ = 0;    // file frame after the last one kept
    std::int64_t historyBegin_ = 0;  // first file frame kept

    std::mutex wakeMutex_;
    std::condition_variable wake_;
    std::thread thread_;
};

}  // namespace velmora
