#pragma once
// Writes a processed planar buffer as a WAV or AIFF master: optional sample-rate conversion,
// quantisation to the chosen depth (no dither: the limiter keeps masters within full scale),
// the speaker layout in the file's header, and an all-or-nothing replacement of the destination.
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/LoudnessError.h"
#include "measurement/ChannelMeter.h"
#include "measurement/LoudnessEngine.h"
#include "output/OutputFormat.h"

namespace velmora {

// Sees the master exactly as stored, block after block: after rate conversion and
// quantisation, one float pointer per file channel in the file's channel order. Called on the
// writing thread; the pointers are only valid during the call.
class SampleObserver {
public:
    virtual ~SampleObserver() = default;
    virtual void samplesWritten(std::span<const float* const> channels, std::size_t frames) = 0;
    // Asked once every sample is in the file, before it replaces the destination: false drops
    // the file, so a master that breaks a promise (a ceiling, say) never replaces anything.
    virtual bool acceptWrite() { return true; }
    // The measurement of the file as written, asked for once it was accepted: a WAV master
    // records it in the loudness fields of its bext chunk.
    virtual std::optional<LoudnessResult> writtenLoudness() const { return std::nullopt; }
};

// The true peak of the file as written, without reading it back.
class TruePeakObserver final : public SampleObserver {
public:
    explicit TruePeakObserver(std::size_t channels) : meters_(channels) {}
    void samplesWritten(std::span<const float* const> channels, std::size_t frames) override;
    double truePeakDB() const;  // over every channel, -240 for silence

private:
    std::vector<TruePeakMeter> meters_;
};

struct WriteRequest {
    std::string destination{};
    std::optional<FileFormat> format{};  // nothing: from the destination's extension
    BitDepth depth = BitDepth::int24;
    double outputRate = 0.0;  // Hz; 0 keeps the source's rate
    // Nothing: defaultLayout(channel count). An empty layout writes none; otherwise one
    // speaker per channel.
    std::optional<SpeakerLayout> layout{};
    std::string sourcePath{};  // the file the master comes from: never written over
    // An open file without a name (ScratchFile) to write into from its start instead of replacing
    // the destination, which then only names the container; -1 for none.
    int scratchFd = -1;
    // A WAV master carries its source's Broadcast Wave metadata (BroadcastWave.h), with this
    // note of what was done ("EBU R128; -23.0 LUFS") in the line it adds to the coding history.
    bool broadcastMetadata = true;
    std::string processing{};
};

struct WriteReport {
    std::string path;
    FileFormat format = FileFormat::wav;
    BitDepth depth = BitDepth::int24;
    double sampleRate = 0.0;  // as written
    std::size_t frames = 0;
    std::size_t channels = 0;
    SpeakerLayout layout;  // as declared by the file, in its channel order; empty for none
    // The buffer channel in each file channel: WAV stores speakers in the order of their bits.
    std::vector<std::size_t> sourceChannels;
    bool committed = false;  // false when the observer refused the file: nothing was replaced
};

// A master's samples handed to the writer a block at a time, so a master computed on the fly
// (the limiter's output) never has to exist whole.
class SampleSource {
public:
    virtual ~SampleSource() = default;
    virtual std::size_t channelCount() const = 0;
    virtual std::size_t frameCount() const = 0;
    // Frames [begin, begin + n) of every channel, in buffer order, n at most `maxBlockFrames`;
    // valid until the next call. Asked for in increasing order, each block following the last.
    // Null when the samples could not be had (a source decoded again that fails): the write
    // then fails with readError().
    virtual const float* const* block(std::size_t begin, std::size_t n) = 0;
    virtual LoudnessError readError() const { return {LoudnessError::Code::cannotRead}; }
    static constexpr std::size_t maxBlockFrames = 65536;
};

// The buffer channel stored in each file channel, as writeMaster stores them: WAV keeps its
// speakers in the order of their bits.
std::vector<std::size_t> fileChannelOrder(std::size_t channels, const WriteRequest& request);

// Missing destination folder, a destination that is the source, full disk or any write error:
// cannotWrite; a folder that refuses access: diskAccess. On failure nothing is left behind and
// an existing file at the destination is untouched; on success it is replaced.
Expected<WriteReport> writeMaster(const Channels& channels, double sampleRate, const WriteRequest& request,
                                  SampleObserver* observer = nullptr);
Expected<WriteReport> writeMaster(SampleSource& source, double sampleRate, const WriteRequest& request,
                                  SampleObserver* observer = nullptr);

}  // namespace velmora
