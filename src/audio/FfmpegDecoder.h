#pragma once
// The FFmpeg side of reading one audio stream. The reader keeps the bookkeeping (estimates,
// growth, listener); this class owns every FFmpeg object and releases them on every path.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVFormatContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct AVStream;

namespace velmora::detail {

struct FormatContextCloser {
    void operator()(AVFormatContext*) const;
};
struct CodecContextFreer {
    void operator()(AVCodecContext*) const;
};
struct PacketFreer {
    void operator()(AVPacket*) const;
};
struct FrameFreer {
    void operator()(AVFrame*) const;
};

class FfmpegDecoder {
public:
    enum class Status { ok, cannotOpen, noStreamInfo, noAudioStream, noDecoder, decoderFailed };
    enum class Pull { frame, end, error };
    enum class Conversion { ok, nonFinite, unsupportedFormat };

    // Opens the container and takes its first audio stream in the container's order. The codec
    // waits for openDecoder(), so a file refused for its channel count is reported as such, not
    // as a codec failure.
    explicit FfmpegDecoder(const std::string& path);
    ~FfmpegDecoder();
    FfmpegDecoder(const FfmpegDecoder&) = delete;
    FfmpegDecoder& operator=(const FfmpegDecoder&) = delete;

    Status status() const { return status_; }
    int channelCount() const;
    int sampleRate() const;
    struct Length {
        std::int64_t frames = 0;  // 0 when nothing is known
        // The file size caps it (plain PCM): the file cannot hold more. Any other length is only
        // what a header says, which a stream written through a pipe or cut short belies.
        bool bounded = false;
    };
    // The length the container announces, bounded by the file size for uncompressed audio.
    Length estimatedLength() const;

    Status openDecoder();
    // One speaker bit per channel, or empty when the stream does not say where they go. Once
    // frames are decoded, the positions they carry, which are what the samples follow; empty
    // when they did not all carry the same.
    std::vector<std::uint64_t> declaredPositions() const;

    // Advances to the next decoded frame; the frame stays valid until the next call. A read or
    // decoding error after good frames ends the stream there (truncated()); before any, it is
    // an error.
    Pull pull();
    // Moves to the container's nearest seek point at or before `sample` (counted at the stream's
    // rate from the container's start) and empties the decoder; frames then come from there.
    // False when the container cannot seek.
    bool seek(std::int64_t sample);
    // Where the current frame starts, in samples from the container's start; nothing when the
    // frame carries no timestamp.
    std::optional<std::int64_t> frameStart() const;
    // Uncompressed samples: every frame decodes on its own, from wherever reading starts.
    bool plainPcm() const { return pcmFrameBytes_ > 0; }
    bool truncated() const { return truncated_; }
    // Whether estimatedLength() is the container's exact word rather than a guess.
    bool lengthIsExact() const;
    std::size_t frameLength() const;
    int frameChannelCount() const;
    int frameSampleRate() const;
    // Writes the current frame to dst[c][0..frameLength()).
    Conversion convertFrame(float* const* dst) const;

private:
    void notePositions();
    Pull cut(int error);

    Status status_ = Status::cannotOpen;
    std::unique_ptr<AVFormatContext, FormatContextCloser> format_;
    std::unique_ptr<AVCodecContext, CodecContextFreer> codec_;
    std::unique_ptr<AVPacket, PacketFreer> packet_;
    std::unique_ptr<AVFrame, FrameFreer> frame_;
    AVStream* stream_ = nullptr;
    int pcmFrameBytes_ = 0;  // bytes per frame of plain PCM, 0 for anything else
    bool flushing_ = false;
    bool decodedAny_ = false;
    bool truncated_ = false;
    bool positionsVary_ = false;
    std::vector<std::uint64_t> framePositions_;  // those of the first decoded frame
    std::vector<std::uint64_t> scratchPositions_;
};

}  // namespace velmora::detail
