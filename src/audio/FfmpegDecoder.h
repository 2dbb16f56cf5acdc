#pragma once
// The FFmpeg side of reading one audio stream. The reader keeps the bookkeeping (estimates,
// growth, listener); this class owns every FFmpeg object and releases them on every path.
#include <cstddef>
#include <cstdint>
#include <memory>
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

    // Opens the container and picks its best audio stream. The codec waits for openDecoder(),
    // so a file refused for its channel count is reported as such, not as a codec failure.
    explicit FfmpegDecoder(const std::string& path);
    ~FfmpegDecoder();
    FfmpegDecoder(const FfmpegDecoder&) = delete;
    FfmpegDecoder& operator=(const FfmpegDecoder&) = delete;

    Status status() const { return status_; }
    int channelCount() const;
    int sampleRate() const;
    // Frames the container announces, bounded by the file size for uncompressed audio; 0 when
    // nothing is known.
    std::int64_t estimatedFrames() const;

    Status openDecoder();
    // One speaker bit per channel, or empty when the stream does not say where they go.
    std::vector<std::uint64_t> declaredPositions() const;

    // Advances to the next decoded frame; the frame stays valid until the next call.
    Pull pull();
    std::size_t frameLength() const;
    int frameChannelCount() const;
    int frameSampleRate() const;
    // Writes the current frame to dst[c][0..frameLength()).
    Conversion convertFrame(float* const* dst) const;

private:
    Status status_ = Status::cannotOpen;
    std::unique_ptr<AVFormatContext, FormatContextCloser> format_;
    std::unique_ptr<AVCodecContext, CodecContextFreer> codec_;
    std::unique_ptr<AVPacket, PacketFreer> packet_;
    std::unique_ptr<AVFrame, FrameFreer> frame_;
    AVStream* stream_ = nullptr;
    int pcmFrameBytes_ = 0;  // bytes per frame of plain PCM, 0 for anything else
    bool flushing_ = false;
};

}  // namespace velmora::detail
