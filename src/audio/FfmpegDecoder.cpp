#include "audio/FfmpegDecoder.h"

#include <algorithm>
#include <string_view>
#include <mutex>

#include "audio/SampleConversion.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

namespace velmora::detail {

void FormatContextCloser::operator()(AVFormatContext* f) const { avformat_close_input(&f); }
void CodecContextFreer::operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
void PacketFreer::operator()(AVPacket* p) const { av_packet_free(&p); }
void FrameFreer::operator()(AVFrame* f) const { av_frame_free(&f); }

namespace {

// FFmpeg's own messages would land on the user's terminal or in the app's output; Velmora
// reports failures through its error codes instead.
void silenceLibraryLogging() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

// Codecs whose packets are nothing but whole frames of fixed-size samples: their length follows
// from the file size and a trailing partial frame can simply be dropped.
bool isPlainPcm(AVCodecID id) {
    switch (id) {
    case AV_CODEC_ID_PCM_U8:
    case AV_CODEC_ID_PCM_S8:
    case AV_CODEC_ID_PCM_ALAW:
    case AV_CODEC_ID_PCM_MULAW:
    case AV_CODEC_ID_PCM_S16LE:
    case AV_CODEC_ID_PCM_S16BE:
    case AV_CODEC_ID_PCM_U16LE:
    case AV_CODEC_ID_PCM_U16BE:
    case AV_CODEC_ID_PCM_S24LE:
    case AV_CODEC_ID_PCM_S24BE:
    case AV_CODEC_ID_PCM_U24LE:
    case AV_CODEC_ID_PCM_U24BE:
    case AV_CODEC_ID_PCM_S32LE:
    case AV_CODEC_ID_PCM_S32BE:
    case AV_CODEC_ID_PCM_U32LE:
    case AV_CODEC_ID_PCM_U32BE:
    case AV_CODEC_ID_PCM_F32LE:
    case AV_CODEC_ID_PCM_F32BE:
    case AV_CODEC_ID_PCM_F64LE:
    case AV_CODEC_ID_PCM_F64BE:
    case AV_CODEC_ID_PCM_S64LE:
    case AV_CODEC_ID_PCM_S64BE: return true;
    default: return false;
    }
}

// One speaker bit per channel into `out` (whose storage is reused), or nothing when the
// layout does not say where every channel goes.
void speakerPositions(const AVChannelLayout& layout, std::vector<std::uint64_t>& out) {
    out.clear();
    if (layout.order != AV_CHANNEL_ORDER_NATIVE && layout.order != AV_CHANNEL_ORDER_CUSTOM) return;
    for (int i = 0; i < layout.nb_channels; ++i) {
        const AVChannel channel = av_channel_layout_channel_from_index(&layout, unsigned(i));
        // A custom map may name unknown or ambisonic channels: then the file does not really
        // say where its speakers are.
        if (channel < 0 || channel >= 64) {
            out.clear();
            return;
        }
        out.push_back(std::uint64_t{1} << unsigned(channel));
    }
}

}  // namespace

FfmpegDecoder::FfmpegDecoder(const std::string& path) {
    silenceLibraryLogging();

    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) {
        status_ = Status::cannotOpen;
        return;
    }
    format_.reset(raw);

    if (avformat_find_stream_info(raw, nullptr) < 0) {
        status_ = Status::noStreamInfo;
        return;
    }
    // The WAV reader's default 4 KiB packets make a long file cost hundreds of thousands of
    // decode calls. Raised only now: the format probing above scans whole packets, and large
    // ones make it dearer than the decoding itself.
    av_opt_set_int(raw, "max_size", 1024 * 1024, AV_OPT_SEARCH_CHILDREN);
    // The first audio track, as a player lists them: FFmpeg's idea of the best one weighs
    // bit rates and flags, and would measure a commentary or a second mix over the main one.
    for (unsigned i = 0; i < raw->nb_streams && !stream_; ++i)
        if (raw->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) stream_ = raw->streams[i];
    if (!stream_) {
        status_ = Status::noAudioStream;
        return;
    }
    // Other streams of a video are skipped by the demuxer instead of being read and dropped.
    for (unsigned i = 0; i < raw->nb_streams; ++i)
        if (raw->streams[i] != stream_) raw->streams[i]->discard = AVDISCARD_ALL;

    const AVCodecParameters* par = stream_->codecpar;
    if (par->ch_layout.nb_channels <= 0) {
        status_ = Status::noAudioStream;
        return;
    }
    if (par->sample_rate <= 0) {
        status_ = Status::noStreamInfo;
        return;
    }
    if (isPlainPcm(par->codec_id)) {
        const int bits = av_get_exact_bits_per_sample(par->codec_id);
        if (bits > 0 && bits % 8 == 0) pcmFrameBytes_ = par->ch_layout.nb_channels * bits / 8;
    }
    status_ = Status::ok;
}

FfmpegDecoder::~FfmpegDecoder() = default;

int FfmpegDecoder::channelCount() const { return stream_ ? stream_->codecpar->ch_layout.nb_channels : 0; }

int FfmpegDecoder::sampleRate() const { return stream_ ? stream_->codecpar->sample_rate : 0; }

FfmpegDecoder::Length FfmpegDecoder::estimatedLength() const {
    const int rate = sampleRate();
    if (rate <= 0) return {};
    const AVRational perSample{1, rate};
    Length length;
    if (stream_->duration != AV_NOPTS_VALUE && stream_->duration > 0)
        length.frames = av_rescale_q(stream_->duration, stream_->time_base, perSample);
    else if (format_->duration != AV_NOPTS_VALUE && format_->duration > 0)
        length.frames = av_rescale_q(format_->duration, AVRational{1, AV_TIME_BASE}, perSample);
    // A header may announce more data than the file holds (an interrupted recording), or
    // nothing at all (written through a pipe); the file size caps what uncompressed audio can
    // really contain.
    if (pcmFrameBytes_ > 0 && format_->pb) {
        const std::int64_t size = avio_size(format_->pb);
        if (size > 0) {
            const std::int64_t bound = size / pcmFrameBytes_;
            length.frames = length.frames > 0 ? std::min(length.frames, bound) : bound;
            length.bounded = true;
        }
    }
    length.frames = std::max<std::int64_t>(length.frames, 0);
    return length;
}

FfmpegDecoder::Status FfmpegDecoder::openDecoder() {
    if (status_ != Status::ok) return status_;
    const AVCodec* codec = avcodec_find_decoder(stream_->codecpar->codec_id);
    if (!codec) return status_ = Status::noDecoder;
    codec_.reset(avcodec_alloc_context3(codec));
    packet_.reset(av_packet_alloc());
    frame_.reset(av_frame_alloc());
    if (!codec_ || !packet_ || !frame_) return status_ = Status::decoderFailed;
    if (avcodec_parameters_to_context(codec_.get(), stream_->codecpar) < 0) return status_ = Status::decoderFailed;
    // Needed for the decoder to honour the encoder delay and padding the container declares.
    codec_->pkt_timebase = stream_->time_base;
    if (codec->capabilities & (AV_CODEC_CAP_FRAME_THREADS | AV_CODEC_CAP_SLICE_THREADS)) {
        codec_->thread_count = 0;
        codec_->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    }
    if (avcodec_open2(codec_.get(), codec, nullptr) < 0) return status_ = Status::decoderFailed;
    return status_;
}

std::vector<std::uint64_t> FfmpegDecoder::declaredPositions() const {
    if (decodedAny_) return positionsVary_ ? std::vector<std::uint64_t>{} : framePositions_;
    std::vector<std::uint64_t> positions;
    if (stream_) speakerPositions(codec_ ? codec_->ch_layout : stream_->codecpar->ch_layout, positions);
    return positions;
}

void FfmpegDecoder::notePositions() {
    if (!decodedAny_) {
        decodedAny_ = true;
        speakerPositions(frame_->ch_layout, framePositions_);
        scratchPositions_.reserve(framePositions_.size());
        return;
    }
    speakerPositions(frame_->ch_layout, scratchPositions_);
    positionsVary_ = positionsVary_ || scratchPositions_ != framePositions_;
}

FfmpegDecoder::Pull FfmpegDecoder::pull() {
    if (!codec_) return Pull::error;
    for (;;) {
        int result = avcodec_receive_frame(codec_.get(), frame_.get());
        if (result >= 0) {
            notePositions();
            return Pull::frame;
        }
        if (result == AVERROR_EOF) return Pull::end;
        if (result != AVERROR(EAGAIN) || flushing_) return cut(result);

        result = av_read_frame(format_.get(), packet_.get());
        if (result == AVERROR_EOF) {
            flushing_ = true;
            if (const int sent = avcodec_send_packet(codec_.get(), nullptr); sent < 0) return cut(sent);
            continue;
        }
        if (result < 0) return cut(result);
        if (packet_->stream_index == stream_->index) {
            // A truncated file ends in the middle of a frame, which the PCM decoder would
            // reject; the whole frames before it are still good.
            if (pcmFrameBytes_ > 0) packet_->size -= packet_->size % pcmFrameBytes_;
            if (packet_->size > 0) result = avcodec_send_packet(codec_.get(), packet_.get());
        }
        av_packet_unref(packet_.get());
        if (result < 0) return cut(result);
    }
}

bool FfmpegDecoder::seek(std::int64_t sample) {
    if (!codec_ || sampleRate() <= 0) return false;
    const std::int64_t origin = stream_->start_time != AV_NOPTS_VALUE ? stream_->start_time : 0;
    const std::int64_t ts = origin + av_rescale_q(sample, AVRational{1, sampleRate()}, stream_->time_base);
    if (av_seek_frame(format_.get(), stream_->index, ts, AVSEEK_FLAG_BACKWARD) < 0) return false;
    avcodec_flush_buffers(codec_.get());
    flushing_ = false;
    return true;
}

std::optional<std::int64_t> FfmpegDecoder::frameStart() const {
    const std::int64_t pts = frame_->best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE || sampleRate() <= 0) return std::nullopt;
    const std::int64_t origin = stream_->start_time != AV_NOPTS_VALUE ? stream_->start_time : 0;
    return av_rescale_q(pts - origin, stream_->time_base, AVRational{1, sampleRate()});
}

// A file that stops making sense after good audio was cut there (a recorder that crashed, a
// copy that did not finish): what came before is the programme, as far as it goes.
FfmpegDecoder::Pull FfmpegDecoder::cut(int error) {
    // Only data that stops making sense is a cut; a failure of the machine (memory, a disk that
    // cannot be read) stays an error.
    const bool damaged = error == AVERROR_INVALIDDATA || error == AVERROR_EOF || error == AVERROR(EAGAIN);
    if (!decodedAny_ || !damaged) return Pull::error;
    truncated_ = true;
    return Pull::end;
}

bool FfmpegDecoder::lengthIsExact() const {
    // Lossless and sample-table containers state their length to the frame; the length of an
    // MP3 or a stream without an index is only a guess.
    if (!format_ || !format_->iformat || !format_->iformat->name) return false;
    const std::string_view name = format_->iformat->name;
    return name == "flac" || name.starts_with("mov,mp4") || name == "wav" || name == "aiff" || name == "w64";
}

std::size_t FfmpegDecoder::frameLength() const { return std::size_t(std::max(frame_->nb_samples, 0)); }

int FfmpegDecoder::frameChannelCount() const { return frame_->ch_layout.nb_channels; }

int FfmpegDecoder::frameSampleRate() const { return frame_->sample_rate; }

FfmpegDecoder::Conversion FfmpegDecoder::convertFrame(float* const* dst) const {
    SampleType type;
    bool planar = false;
    switch (AVSampleFormat(frame_->format)) {
    case AV_SAMPLE_FMT_U8P: planar = true; [[fallthrough]];
    case AV_SAMPLE_FMT_U8: type = SampleType::u8; break;
    case AV_SAMPLE_FMT_S16P: planar = true; [[fallthrough]];
    case AV_SAMPLE_FMT_S16: type = SampleType::s16; break;
    case AV_SAMPLE_FMT_S32P: planar = true; [[fallthrough]];
    case AV_SAMPLE_FMT_S32: type = SampleType::s32; break;
    case AV_SAMPLE_FMT_S64P: planar = true; [[fallthrough]];
    case AV_SAMPLE_FMT_S64: type = SampleType::s64; break;
    case AV_SAMPLE_FMT_FLTP: planar = true; [[fallthrough]];
    case AV_SAMPLE_FMT_FLT: type = SampleType::f32; break;
    case AV_SAMPLE_FMT_DBLP: planar = true; [[fallthrough]];
    case AV_SAMPLE_FMT_DBL: type = SampleType::f64; break;
    default: return Conversion::unsupportedFormat;
    }
    const std::size_t frames = frameLength();
    const std::size_t channels = std::size_t(frame_->ch_layout.nb_channels);
    if (planar)
        planarToFloat(type, frame_->extended_data, frames, channels, dst);
    else
        interleavedToFloat(type, frame_->extended_data[0], frames, channels, dst);
    // Integer samples cannot be anything but finite; float ones can, and one NaN would poison
    // every sum the measurement makes.
    if (type == SampleType::f32 || type == SampleType::f64)
        for (std::size_t c = 0; c < channels; ++c)
            if (!allFinite(dst[c], frames)) return Conversion::nonFinite;
    return Conversion::ok;
}

}  // namespace velmora::detail
