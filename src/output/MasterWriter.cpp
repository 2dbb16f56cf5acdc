#include "output/MasterWriter.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <sndfile.h>
#include <unistd.h>

#include "mastering/RateConverter.h"
#include "output/BlockEncoder.h"
#include "output/Interruption.h"
#include "output/BroadcastWave.h"
#include "output/PendingFile.h"

namespace velmora {

void TruePeakObserver::samplesWritten(std::span<const float* const> channels, std::size_t frames) {
    for (std::size_t c = 0; c < std::min(channels.size(), meters_.size()); ++c) meters_[c].process(channels[c], frames);
}

double TruePeakObserver::truePeakDB() const {
    double peak = 1e-12;
    for (const TruePeakMeter& m : meters_) peak = std::max(peak, m.peak());
    return 20.0 * std::log10(peak);
}

namespace {

const LoudnessError cannotWrite{LoudnessError::Code::cannotWrite};
const LoudnessError rateConversion{LoudnessError::Code::rateConversion};
constexpr std::size_t chunkFrames = SampleSource::maxBlockFrames;
// Past this the 32-bit sizes of RIFF and AIFF chunks overflow.
constexpr std::uint64_t maxClassicDataBytes = 0xFFFFFFFFull - 65536;

// The WAVE_FORMAT_EXTENSIBLE bits in order, as libsndfile names them; the Core Audio channel
// bitmap of AIFF uses the same bits and its labels are the bit index plus one.
constexpr int sndfileSpeakers[] = {
    SF_CHANNEL_MAP_LEFT,           SF_CHANNEL_MAP_RIGHT,           SF_CHANNEL_MAP_CENTER,
    SF_CHANNEL_MAP_LFE,            SF_CHANNEL_MAP_REAR_LEFT,       SF_CHANNEL_MAP_REAR_RIGHT,
    SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, SF_CHANNEL_MAP_REAR_CENTER,
    SF_CHANNEL_MAP_SIDE_LEFT,      SF_CHANNEL_MAP_SIDE_RIGHT,      SF_CHANNEL_MAP_TOP_CENTER,
    SF_CHANNEL_MAP_TOP_FRONT_LEFT, SF_CHANNEL_MAP_TOP_FRONT_CENTER, SF_CHANNEL_MAP_TOP_FRONT_RIGHT,
    SF_CHANNEL_MAP_TOP_REAR_LEFT,  SF_CHANNEL_MAP_TOP_REAR_CENTER, SF_CHANNEL_MAP_TOP_REAR_RIGHT,
};
constexpr int speakerBits = int(std::size(sndfileSpeakers));
constexpr std::uint32_t coreAudioUseBitmap = 1u << 16, coreAudioMpeg71C = (128u << 16) | 8;

struct ChannelPlan {
    std::vector<std::size_t> order;  // buffer channel of each file channel
    SpeakerLayout speakers;          // file order; empty when the file declares none
    std::vector<int> sndfileMap;
};

// A layout is declared only when every channel names one distinct speaker that the headers
// can carry; WAV then stores the channels in the order of their bits, as its mask implies.
ChannelPlan planChannels(std::size_t count, const std::optional<SpeakerLayout>& layout, FileFormat format) {
    ChannelPlan plan;
    plan.order.resize(count);
    for (std::size_t c = 0; c < count; ++c) plan.order[c] = c;
    if (!layout || layout->size() != count) return plan;
    std::uint64_t seen = 0;
    for (std::uint64_t s : *layout) {
        if (!std::has_single_bit(s) || std::countr_zero(s) >= speakerBits || (seen & s)) return plan;
        seen |= s;
    }
    if (format == FileFormat::wav)
        std::sort(plan.order.begin(), plan.order.end(),
                  [&](std::size_t a, std::size_t b) { return (*layout)[a] < (*layout)[b]; });
    for (std::size_t c : plan.order) {
        plan.speakers.push_back((*layout)[c]);
        plan.sndfileMap.push_back(sndfileSpeakers[std::countr_zero((*layout)[c])]);
    }
    if (format == FileFormat::aiff && count == 1) plan.sndfileMap = {SF_CHANNEL_MAP_MONO};
    return plan;
}

// libsndfile knows Core Audio tags for up to six channels only; past that the channel chunk is
// written by hand: the 7.1 tag, else a bitmap, which implies channels in the order of their
// bits (FFmpeg reads no other form of the chunk).
std::optional<std::vector<unsigned char>> coreAudioChannelChunk(const SpeakerLayout& speakers) {
    std::uint32_t tag = coreAudioUseBitmap, bitmap = 0;
    if (speakers == surround71Layout())
        tag = coreAudioMpeg71C;
    else if (std::is_sorted(speakers.begin(), speakers.end()))
        for (std::uint64_t s : speakers) bitmap |= std::uint32_t(s);
    else
        return std::nullopt;
    std::vector<unsigned char> chunk;
    for (std::uint32_t field : {tag, bitmap, 0u})  // tag, bitmap, no channel descriptions
        for (int shift = 24; shift >= 0; shift -= 8) chunk.push_back(static_cast<unsigned char>(field >> shift));
    return chunk;
}

// libsndfile keeps the header; the samples, already packed in the file's byte order, go
// straight to the file, and what has been written is handed to the disk as it comes so the
// flush before the rename is short.
struct RawWriter {
    SNDFILE* file;
    int fd;
    std::size_t unflushed = 0;

    static bool write(void* context, const unsigned char* bytes, std::size_t count) {
        auto& self = *static_cast<RawWriter*>(context);
        if (interruptRequested()) return false;  // the file goes with the pending file
        if (sf_write_raw(self.file, bytes, sf_count_t(count)) != sf_count_t(count)) return false;
        self.unflushed += count;
        if (self.unflushed >= writebackBytes) {
            PendingFile::startWriteback(self.fd);
            self.unflushed = 0;
        }
        return true;
    }
    static constexpr std::size_t writebackBytes = std::size_t(32) << 20;
};

// Nothing when every sample reached the file, else why not. `order` maps file channels to the
// source's channels.
std::optional<LoudnessError> writeConverted(SampleSource& source, const std::vector<std::size_t>& order, double inputRate,
                                            double outputRate, std::size_t outputFrames, BlockEncoder& sink) {
    const std::size_t count = order.size();
    RateConverter converter(count, inputRate, outputRate, chunkFrames);
    std::vector<const float*> chunk(count);
    const RateConverter::Outcome outcome = converter.run(
        source.frameCount(), outputFrames,
        [&](std::size_t begin, std::size_t n) {
            const float* const* block = source.block(begin, n);
            if (!block) return static_cast<const float* const*>(nullptr);
            for (std::size_t c = 0; c < count; ++c) chunk[c] = block[order[c]];
            return static_cast<const float* const*>(chunk.data());
        },
        [&](const float* const* channels, std::size_t n) { return sink.push(channels, n); });
    switch (outcome) {
    case RateConverter::Outcome::done: return std::nullopt;
    case RateConverter::Outcome::conversionFailed: return rateConversion;
    case RateConverter::Outcome::outputRefused: return cannotWrite;
    case RateConverter::Outcome::inputFailed: return source.readError();
    }
    return rateConversion;
}

bool sameFile(const std::string& a, const std::string& b) {
    std::error_code ec;
    if (std::filesystem::equivalent(a, b, ec)) return true;
    const std::filesystem::path ca = std::filesystem::weakly_canonical(a, ec);
    if (ec) return false;
    const std::filesystem::path cb = std::filesystem::weakly_canonical(b, ec);
    return !ec && ca == cb;
}

int sndfileFormat(FileFormat format, BitDepth depth, bool declaresLayout, std::uint64_t dataBytes) {
    const int codec = depth == BitDepth::int16 ? SF_FORMAT_PCM_16 : depth == BitDepth::int24 ? SF_FORMAT_PCM_24
                                                                                               : SF_FORMAT_FLOAT;
    if (format == FileFormat::aiff) return SF_FORMAT_AIFF | codec;
    if (dataBytes > maxClassicDataBytes) return SF_FORMAT_RF64 | codec;
    return (declaresLayout ? SF_FORMAT_WAVEX : SF_FORMAT_WAV) | codec;
}

// The source's bext (or Velmora's), iXML and axml chunks in the header of a WAV master; the
// loudness fields are written once the samples are measured. True when a bext chunk was set.
bool setBroadcastChunks(SNDFILE* file, const WriteRequest& request, double sourceRate, double fileRate,
                        std::size_t channels) {
    const SourceMetadata source =
        request.sourcePath.empty() ? SourceMetadata{} : readSourceMetadata(request.sourcePath);
    MasterBextInput input;
    input.source = &source;
    input.sourceName = std::filesystem::path(request.sourcePath.empty() ? request.destination : request.sourcePath)
                           .filename()
                           .string();
    input.sourceRate = sourceRate;
    input.fileRate = fileRate;
    input.bits = bits(request.depth);
    input.floatSamples = isFloat(request.depth);
    input.channels = channels;
    input.processing = request.processing;
    std::vector<unsigned char> bext = bextChunkData(masterBext(input));
    const auto set = [&](const char* id, std::vector<unsigned char>& data) {
        SF_CHUNK_INFO chunk{};
        std::copy_n(id, 4, chunk.id);
        chunk.id_size = 4;
        chunk.datalen = unsigned(data.size());
        chunk.data = data.data();
        return sf_set_chunk(file, &chunk) == SF_ERR_NO_ERROR;
    };
    const bool bextSet = set("bext", bext);
    for (RawChunk chunk : source.chunks) set(chunk.id.c_str(), chunk.data);
    return bextSet;
}

}  // namespace

std::vector<std::size_t> fileChannelOrder(std::size_t channels, const WriteRequest& request) {
    const FileFormat format = request.format.value_or(formatForPath(request.destination));
    return planChannels(channels, request.layout ? request.layout : defaultLayout(channels), format).order;
}

namespace {

// A buffer that is already whole.
class BufferSource final : public SampleSource {
public:
    explicit BufferSource(const Channels& channels) : channels_(channels), pointers_(channels.size()) {}
    std::size_t channelCount() const override { return channels_.size(); }
    std::size_t frameCount() const override { return channels_.empty() ? 0 : channels_[0].size(); }
    const float* const* block(std::size_t begin, std::size_t) override {
        for (std::size_t c = 0; c < channels_.size(); ++c) pointers_[c] = channels_[c].data() + begin;
        return pointers_.data();
    }

private:
    const Channels& channels_;
    std::vector<const float*> pointers_;
};

}  // namespace

Expected<WriteReport> writeMaster(const Channels& channels, double sampleRate, const WriteRequest& request,
                                  SampleObserver* observer) {
    const LoudnessError nothingToWrite{LoudnessError::Code::nothingToWrite};
    if (std::any_of(channels.begin(), channels.end(), [&](auto& c) { return c.size() != channels[0].size(); }))
        return nothingToWrite;
    BufferSource source(channels);
    return writeMaster(source, sampleRate, request, observer);
}

Expected<WriteReport> writeMaster(SampleSource& source, double sampleRate, const WriteRequest& request,
                                  SampleObserver* observer) {
    const LoudnessError nothingToWrite{LoudnessError::Code::nothingToWrite};
    const std::size_t count = source.channelCount(), frames = source.frameCount();
    if (count == 0 || frames == 0) return nothingToWrite;
    if (request.destination.empty()) return cannotWrite;
    if (count > 1024) return nothingToWrite;
    const double targetRate = resolveOutputRate(request.outputRate, sampleRate);
    if (!(sampleRate >= 1.0 && sampleRate < INT_MAX && targetRate >= 1.0 && targetRate < INT_MAX)) return rateConversion;
    if (request.layout && !request.layout->empty() && request.layout->size() != count) return nothingToWrite;
    if (!request.sourcePath.empty() && sameFile(request.destination, request.sourcePath))
        return LoudnessError{LoudnessError::Code::sameAsSource};

    const bool convert = std::fabs(targetRate - sampleRate) >= 0.5;
    const double fileRate = std::round(convert ? targetRate : sampleRate);
    const std::size_t outputFrames = convert ? RateConverter::outputLength(frames, sampleRate, targetRate) : frames;
    const FileFormat format = request.format.value_or(formatForPath(request.destination));
    const ChannelPlan plan = planChannels(count, request.layout ? request.layout : defaultLayout(count), format);
    const std::uint64_t dataBytes = std::uint64_t(outputFrames) * count * std::uint64_t(bits(request.depth) / 8);
    if (format == FileFormat::aiff && dataBytes > maxClassicDataBytes)
        return LoudnessError{LoudnessError::Code::outputTooLargeForAiff};

    std::optional<PendingFile> pending;
    int fd = request.scratchFd;
    if (fd >= 0) {
        if (::ftruncate(fd, 0) != 0 || ::lseek(fd, 0, SEEK_SET) != 0) return cannotWrite;
    } else {
        Expected<PendingFile> created = PendingFile::create(request.destination);
        if (!created) return created.error();
        pending.emplace(std::move(*created));
        fd = pending->fd();
    }

    SF_INFO info{};
    info.samplerate = int(fileRate);
    info.channels = int(count);
    info.format = sndfileFormat(format, request.depth, !plan.sndfileMap.empty(), dataBytes);
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(sf_open_fd(fd, SFM_WRITE, &info, SF_FALSE), &sf_close);
    if (!file) return cannotWrite;
    sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    SpeakerLayout declared = plan.speakers;
    if (!plan.sndfileMap.empty()) {
        std::vector<int> map = plan.sndfileMap;
        const bool mapped =
            sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, map.data(), int(map.size() * sizeof(int))) == SF_TRUE;
        std::optional<std::vector<unsigned char>> chunk;
        if (!mapped && format == FileFormat::aiff) chunk = coreAudioChannelChunk(plan.speakers);
        SF_CHUNK_INFO chan{};
        if (chunk) {
            std::copy_n("CHAN", 4, chan.id);
            chan.id_size = 4;
            chan.datalen = unsigned(chunk->size());
            chan.data = chunk->data();
        }
        if (!mapped && !(chunk && sf_set_chunk(file.get(), &chan) == SF_ERR_NO_ERROR)) declared.clear();
    }

    // RF64 (a WAV past 4 GiB) carries the same chunks: a film's master keeps its timecode too.
    const bool bext =
        format == FileFormat::wav && request.broadcastMetadata &&
        setBroadcastChunks(file.get(), request, sampleRate, fileRate, count);

    std::optional<LoudnessError> failure;
    {
        RawWriter raw{file.get(), fd};
        BlockEncoder sink(count, request.depth, format == FileFormat::aiff, observer, &RawWriter::write, &raw);
        if (convert) {
            failure = writeConverted(source, plan.order, sampleRate, targetRate, outputFrames, sink);
        } else {
            std::vector<const float*> input(count);
            for (std::size_t at = 0; at < frames && !failure; at += SampleSource::maxBlockFrames) {
                const std::size_t n = std::min(SampleSource::maxBlockFrames, frames - at);
                const float* const* block = source.block(at, n);
                if (!block) {
                    failure = source.readError();
                    break;
                }
                for (std::size_t c = 0; c < count; ++c) input[c] = block[plan.order[c]];
                if (!sink.push(input.data(), n)) failure = cannotWrite;
            }
        }
        if (!failure && !sink.finish()) failure = cannotWrite;
    }
    if (sf_error(file.get()) != SF_ERR_NO_ERROR && !failure) failure = cannotWrite;
    if (sf_close(file.release()) != 0 && !failure) failure = cannotWrite;
    if (interruptRequested()) return LoudnessError{LoudnessError::Code::interrupted};
    if (failure) return *failure;
    const bool accepted = !observer || observer->acceptWrite();
    if (accepted && bext && observer)
        if (const auto loudness = observer->writtenLoudness())
            if (!patchBextLoudness(fd, bextLoudnessOf(*loudness))) return cannotWrite;
    if (accepted && pending)
        if (std::optional<LoudnessError> error = pending->commit()) return *error;

    WriteReport report;
    report.committed = accepted;
    report.path = request.destination;
    report.format = format;
    report.depth = request.depth;
    report.sampleRate = fileRate;
    report.frames = outputFrames;
    report.channels = count;
    report.layout = std::move(declared);
    report.sourceChannels = plan.order;
    return report;
}

}  // namespace velmora
