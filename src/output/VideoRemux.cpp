#include "output/VideoRemux.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>

#include "audio/SystemErrorText.h"
#include "output/PendingFile.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace velmora {
namespace {

struct InputCloser {
    void operator()(AVFormatContext* f) const { avformat_close_input(&f); }
};
struct OutputFreer {
    void operator()(AVFormatContext* f) const {
        avio_closep(&f->pb);
        avformat_free_context(f);
    }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
using Input = std::unique_ptr<AVFormatContext, InputCloser>;
using Output = std::unique_ptr<AVFormatContext, OutputFreer>;
using Packet = std::unique_ptr<AVPacket, PacketFreer>;

// The muxer's remarks (a missing frame rate, an unusual tag) would reach the user's terminal;
// what matters to the user comes back as the failure instead.
void silenceLibraryLogging() {
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

// The decoding library's words for its errors are English: the user reads ours.
RemuxFailure ffmpegFailure(int code) {
    std::string cause;
    if (code == AVERROR_INVALIDDATA || code == AVERROR_EOF)
        cause = "fichier vidéo illisible ou endommagé";
    else if (code == AVERROR_MUXER_NOT_FOUND || code == AVERROR_DEMUXER_NOT_FOUND || code == AVERROR_PATCHWELCOME ||
             code == AVERROR_STREAM_NOT_FOUND)
        cause = "format vidéo non pris en charge";
    else if (code < 0 && -code < 4096)
        cause = systemErrorText(AVUNERROR(code));
    else
        cause = "erreur de multiplexage n° " + std::to_string(code);
    return {"Vidéo impossible à réassembler : " + cause + ".", std::nullopt};
}

RemuxFailure velmoraFailure(LoudnessError error) { return {error.message(), error}; }

RemuxFailure cannotWrite() { return velmoraFailure({LoudnessError::Code::cannotWrite}); }

int openInput(const std::filesystem::path& file, Input& into) {
    AVFormatContext* raw = nullptr;
    if (int r = avformat_open_input(&raw, file.c_str(), nullptr, nullptr); r < 0) return r;
    into.reset(raw);
    return std::min(avformat_find_stream_info(raw, nullptr), 0);
}

// Cover art is stored as a one-picture video track; it is not the picture of a movie.
AVStream* firstStream(AVFormatContext* f, AVMediaType type) {
    for (unsigned i = 0; i < f->nb_streams; ++i) {
        AVStream* s = f->streams[i];
        if (s->codecpar->codec_type == type && !(s->disposition & AV_DISPOSITION_ATTACHED_PIC)) return s;
    }
    return nullptr;
}

// Leaves only `keep` to be read, so the demuxer skips the rest instead of handing it over.
void discardAllBut(AVFormatContext* f, const AVStream* keep) {
    for (unsigned i = 0; i < f->nb_streams; ++i)
        if (f->streams[i] != keep) f->streams[i]->discard = AVDISCARD_ALL;
}

// Size of one sample frame when the audio is plain PCM, which can be cut at any sample; 0 for
// anything else.
int pcmFrameBytes(const AVCodecParameters* par) {
    const bool pcm = par->codec_id >= AV_CODEC_ID_PCM_S16LE && par->codec_id < AV_CODEC_ID_ADPCM_IMA_QT;
    const int bits = av_get_exact_bits_per_sample(par->codec_id);
    if (!pcm || bits <= 0 || bits % 8 != 0 || par->ch_layout.nb_channels <= 0 || par->sample_rate <= 0) return 0;
    return bits / 8 * par->ch_layout.nb_channels;
}

bool movieAccepts(const AVOutputFormat* format, AVCodecID codec) {
    return avformat_query_codec(format, codec, FF_COMPLIANCE_NORMAL) == 1;
}

// A source tag the movie format knows for the same codec is kept: players tell apart
// variants such as hvc1 and hev1 by it. Any other tag is left for the muxer to choose.
unsigned int movieTag(const AVOutputFormat* format, const AVCodecParameters* par) {
    if (par->codec_tag != 0 && av_codec_get_id(format->codec_tag, par->codec_tag) == par->codec_id)
        return par->codec_tag;
    return 0;
}

// Rotation and other display hints live beside the stream, not in its codec parameters, up to
// FFmpeg 6.0; later versions carry them in the parameters copied with the codec.
int copyDisplaySideData([[maybe_unused]] const AVStream* from, [[maybe_unused]] AVStream* to) {
#if !defined(FF_API_AVSTREAM_SIDE_DATA)
    for (int i = 0; i < from->nb_side_data; ++i) {
        const AVPacketSideData& sd = from->side_data[i];
        std::uint8_t* data = av_stream_new_side_data(to, sd.type, sd.size);
        if (!data) return AVERROR(ENOMEM);
        std::memcpy(data, sd.data, sd.size);
    }
#endif
    return 0;
}

// Length of the picture in the video stream's time base, as the container states it.
std::int64_t pictureDuration(const AVFormatContext* f, const AVStream* video) {
    if (video->duration != AV_NOPTS_VALUE && video->duration > 0) return video->duration;
    if (f->duration != AV_NOPTS_VALUE && f->duration > 0)
        return av_rescale_q(f->duration, AVRational{1, AV_TIME_BASE}, video->time_base);
    return AV_NOPTS_VALUE;
}

// Next packet of `stream`: 0, AVERROR_EOF at the end, or the read error.
int readPacket(AVFormatContext* f, const AVStream* stream, AVPacket* packet) {
    for (;;) {
        if (int r = av_read_frame(f, packet); r < 0) return r;
        if (packet->stream_index == stream->index) return 0;
        av_packet_unref(packet);
    }
}

class Remux {
public:
    Remux(AVFormatContext* source, AVStream* video, AVFormatContext* master, AVStream* audio)
        : source_(source), videoIn_(video), master_(master), audioIn_(audio), frameBytes_(pcmFrameBytes(audio->codecpar)) {
        const std::int64_t picture = pictureDuration(source, video);
        const AVRational perSample{1, audio->codecpar->sample_rate};
        audioLimit_ = picture == AV_NOPTS_VALUE ? std::numeric_limits<std::int64_t>::max()
                                                 : av_rescale_q_rnd(picture, video->time_base, perSample, AV_ROUND_NEAR_INF);
        if (video->start_time != AV_NOPTS_VALUE) videoStart_ = video->start_time;
    }

    std::optional<RemuxFailure> writeTo(const std::filesystem::path& file) {
        AVFormatContext* raw = nullptr;
        if (int r = avformat_alloc_output_context2(&raw, nullptr, "mov", file.c_str()); r < 0) return ffmpegFailure(r);
        out_.reset(raw);
        if (auto failure = addStreams()) return failure;
        if (int r = avio_open(&raw->pb, file.c_str(), AVIO_FLAG_WRITE); r < 0) return ffmpegFailure(r);

        // The index goes first, so a player can start before the whole file has arrived.
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "+faststart", 0);
        const int r = avformat_write_header(raw, &options);
        av_dict_free(&options);
        if (r < 0) return ffmpegFailure(r);

        if (auto failure = copyPackets()) return failure;
        if (int w = av_write_trailer(raw); w < 0) return ffmpegFailure(w);
        if (int c = avio_closep(&raw->pb); c < 0) return ffmpegFailure(c);
        return std::nullopt;
    }

private:
    std::optional<RemuxFailure> addStreams() {
        AVFormatContext* out = out_.get();
        videoOut_ = avformat_new_stream(out, nullptr);
        audioOut_ = avformat_new_stream(out, nullptr);
        if (!videoOut_ || !audioOut_) return cannotWrite();

        if (int r = avcodec_parameters_copy(videoOut_->codecpar, videoIn_->codecpar); r < 0) return ffmpegFailure(r);
        videoOut_->codecpar->codec_tag = movieTag(out->oformat, videoIn_->codecpar);
        videoOut_->time_base = videoIn_->time_base;
        videoOut_->avg_frame_rate = videoIn_->avg_frame_rate;
        videoOut_->sample_aspect_ratio = videoIn_->sample_aspect_ratio;
        if (int r = copyDisplaySideData(videoIn_, videoOut_); r < 0) return ffmpegFailure(r);

        if (int r = avcodec_parameters_copy(audioOut_->codecpar, audioIn_->codecpar); r < 0) return ffmpegFailure(r);
        audioOut_->codecpar->codec_tag = 0;  // a WAV format number means nothing in a movie
        audioOut_->time_base = AVRational{1, audioIn_->codecpar->sample_rate};
        return std::nullopt;
    }

    // Takes packets from both inputs in time order, so the muxer can lay them out in
    // alternating chunks without holding a long stretch of either in memory.
    std::optional<RemuxFailure> copyPackets() {
        Packet video(av_packet_alloc()), audio(av_packet_alloc());
        if (!video || !audio) return ffmpegFailure(AVERROR(ENOMEM));
        bool haveVideo = false, haveAudio = false, videoEnded = false, audioEnded = false;
        for (;;) {
            if (!haveVideo && !videoEnded) {
                const int r = readPacket(source_, videoIn_, video.get());
                if (r == AVERROR_EOF) videoEnded = true;
                else if (r < 0) return ffmpegFailure(r);
                else {
                    prepareVideo(video.get());
                    haveVideo = true;
                }
            }
            if (!haveAudio && !audioEnded) {
                const int r = readPacket(master_, audioIn_, audio.get());
                if (r == AVERROR_EOF) audioEnded = true;
                else if (r < 0) return ffmpegFailure(r);
                else if (!prepareAudio(audio.get())) audioEnded = true;
                else haveAudio = true;
            }
            if (!haveVideo && !haveAudio) return std::nullopt;

            const bool videoFirst =
                haveVideo && (!haveAudio || video->dts == AV_NOPTS_VALUE ||
                              av_compare_ts(video->dts, videoOut_->time_base, audio->dts, audioOut_->time_base) <= 0);
            // The muxer takes the packet's data over and leaves the packet blank, even on failure.
            const int r = av_interleaved_write_frame(out_.get(), videoFirst ? video.get() : audio.get());
            (videoFirst ? haveVideo : haveAudio) = false;
            if (r < 0) return ffmpegFailure(r);
        }
    }

    // The picture starts at 0 in the movie whatever time the source gave its first frame.
    void prepareVideo(AVPacket* p) {
        if (videoStart_ == AV_NOPTS_VALUE) videoStart_ = p->pts != AV_NOPTS_VALUE ? p->pts : p->dts;
        if (videoStart_ != AV_NOPTS_VALUE) {
            if (p->pts != AV_NOPTS_VALUE) p->pts -= videoStart_;
            if (p->dts != AV_NOPTS_VALUE) p->dts -= videoStart_;
        }
        p->stream_index = videoOut_->index;
        p->pos = -1;
        av_packet_rescale_ts(p, videoIn_->time_base, videoOut_->time_base);
    }

    // Cuts the sound at the sample where the picture ends. The packets are stamped from the
    // samples themselves, so the sound starts with the picture. False once nothing is left.
    bool prepareAudio(AVPacket* p) {
        const std::int64_t frames = std::min<std::int64_t>(p->size / frameBytes_, audioLimit_ - audioWritten_);
        if (frames <= 0) {
            av_packet_unref(p);
            return false;
        }
        av_shrink_packet(p, int(frames * frameBytes_));
        p->pts = p->dts = audioWritten_;
        p->duration = frames;
        audioWritten_ += frames;
        p->stream_index = audioOut_->index;
        p->pos = -1;
        av_packet_rescale_ts(p, AVRational{1, audioIn_->codecpar->sample_rate}, audioOut_->time_base);
        return true;
    }

    AVFormatContext* source_;
    AVStream* videoIn_;
    AVFormatContext* master_;
    AVStream* audioIn_;
    const int frameBytes_;
    std::int64_t audioLimit_ = 0;  // sample frames of the master the movie keeps at most
    std::int64_t audioWritten_ = 0;
    std::int64_t videoStart_ = AV_NOPTS_VALUE;
    Output out_;
    AVStream* videoOut_ = nullptr;
    AVStream* audioOut_ = nullptr;
};

}  // namespace

std::optional<RemuxFailure> remuxVideoMaster(const std::filesystem::path& sourceVideo,
                                             const std::filesystem::path& masterAudio,
                                             const std::filesystem::path& destination) {
    silenceLibraryLogging();
    const AVOutputFormat* movie = av_guess_format("mov", nullptr, nullptr);
    if (!movie) return cannotWrite();

    Input source;
    if (int r = openInput(sourceVideo, source); r < 0) return ffmpegFailure(r);
    AVStream* video = firstStream(source.get(), AVMEDIA_TYPE_VIDEO);
    // Not a disk's doing: the picture itself cannot go into a movie without re-encoding.
    if (!video || !movieAccepts(movie, video->codecpar->codec_id))
        return velmoraFailure({LoudnessError::Code::pictureNotCarried});
    discardAllBut(source.get(), video);

    Input master;
    if (int r = openInput(masterAudio, master); r < 0) return ffmpegFailure(r);
    AVStream* audio = firstStream(master.get(), AVMEDIA_TYPE_AUDIO);
    if (!audio || pcmFrameBytes(audio->codecpar) == 0 || !movieAccepts(movie, audio->codecpar->codec_id))
        return cannotWrite();
    discardAllBut(master.get(), audio);

    auto pending = PendingFile::create(destination);
    if (!pending) return velmoraFailure(pending.error());
    // Declared after the pending file, so the movie is closed before a failed one is removed.
    Remux remux(source.get(), video, master.get(), audio);
    if (auto failure = remux.writeTo(pending->path())) return failure;
    if (auto error = pending->commit()) return velmoraFailure(*error);
    return std::nullopt;
}

}  // namespace velmora
