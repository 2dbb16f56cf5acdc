#include "audio/AudioFileReader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <new>
#include <unistd.h>
#include <vector>

#include "audio/FfmpegDecoder.h"

namespace velmora {

namespace {

using detail::FfmpegDecoder;
using Code = LoudnessError::Code;

constexpr int maxAudioFileChannels = 16;
// Large enough that the listener's per-call overhead vanishes, small enough that measurement
// keeps pace with decoding.
constexpr std::size_t notifyInterval = 65536;
// Frames per channel of the reused window when the samples are not kept: big enough that
// waiting for the listener at each wrap is rare, small enough to stay in the caches' reach.
constexpr std::size_t streamWindowFrames = std::size_t{1} << 20;

constexpr std::array audioExtensions{"wav", "aif", "aiff", "caf", "mp3", "m4a", "aac", "flac"};
constexpr std::array videoExtensions{"mov", "mp4", "m4v"};
// Containers that FFmpeg always recognises by content (see Reading::unreadable).
constexpr std::array damagedWhenUnopenable{"wav", "aif", "aiff", "caf", "mp4", "m4a", "mov", "aac"};

std::string lowerExtension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    if (!ext.empty()) ext.erase(0, 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

template <std::size_t N>
bool contains(const std::array<const char*, N>& list, const std::string& value) {
    return std::any_of(list.begin(), list.end(), [&](const char* e) { return value == e; });
}

// MemAvailable counts reclaimable page cache, which a plain free-page count would miss: right
// after reading a big file most memory looks used while it is not.
std::uint64_t availableMemoryBytes() {
    if (std::FILE* f = std::fopen("/proc/meminfo", "r")) {
        char line[256];
        unsigned long long kib = 0;
        bool found = false;
        while (!found && std::fgets(line, sizeof line, f)) found = std::sscanf(line, "MemAvailable: %llu kB", &kib) == 1;
        std::fclose(f);
        if (found) return std::uint64_t(kib) * 1024;
    }
    const long pages = sysconf(_SC_AVPHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0) return std::uint64_t(pages) * std::uint64_t(pageSize);
    return std::numeric_limits<std::uint64_t>::max();
}

bool fitsInMemory(std::uint64_t frames, std::size_t channels) {
    const long double bytes = static_cast<long double>(frames) * channels * sizeof(float);
    return bytes <= static_cast<long double>(availableMemoryBytes());
}

enum class Route { audioFile, video };

// One decode from open to hand-back. Owns the channels the listener is watching, so they are
// only moved out once the listener has been quiesced.
class Reading {
public:
    Reading(Route route, DecodeListener* listener) : route_(route), listener_(listener) {}

    Expected<PlanarAudio> run(const std::string& path) {
        try {
            return decode(path);
        } catch (const std::bad_alloc&) {
            return fail(Code::tooLarge);
        }
    }

private:
    Expected<PlanarAudio> decode(const std::string& path) {
        FfmpegDecoder decoder(path);
        switch (decoder.status()) {
        case FfmpegDecoder::Status::ok: break;
        case FfmpegDecoder::Status::cannotOpen: return fail(unreadable(path));
        case FfmpegDecoder::Status::noAudioStream: return fail(Code::noAudioTrack);
        default: return fail(Code::corruptFile);
        }
        const int channelCount = decoder.channelCount();
        if (route_ == Route::audioFile && channelCount > maxAudioFileChannels) {
            quiesce();
            return LoudnessError{Code::tooManyChannels, channelCount};
        }
        switch (decoder.openDecoder()) {
        case FfmpegDecoder::Status::ok: break;
        case FfmpegDecoder::Status::noDecoder: return fail(unreadable(path));
        default: return fail(Code::corruptFile);
        }

        // A stream written through a pipe announces no length, or a false one: the length is
        // what decodes, and the channels grow as it comes. Only a length the file size vouches
        // for may refuse a file before decoding; the memory check otherwise counts the frames
        // actually decoded (grow), so a header cannot claim a file too large to read.
        const auto length = decoder.estimatedLength();
        const auto expected = std::size_t(length.frames);
        streaming_ = listener_ && !listener_->keepsSamples();
        std::size_t reserved = streaming_ ? streamWindowFrames : expected;
        if (!streaming_ && !fitsInMemory(expected, std::size_t(channelCount))) {
            if (length.bounded) return fail(Code::tooLarge);
            reserved = 0;
        }

        audio_.sampleRate = decoder.sampleRate();
        audio_.channels.resize(std::size_t(channelCount));
        for (auto& channel : audio_.channels) channel.resize(reserved);
        // What the stream announces, so a listener can weigh the channels from the start; the
        // decoded frames have the last word below.
        audio_.declaredPositions = decoder.declaredPositions();
        if (int(audio_.declaredPositions.size()) != channelCount) audio_.declaredPositions.clear();
        if (listener_) listener_->started(audio_, expected);

        std::vector<float*> destination(audio_.channels.size());
        std::size_t decoded = 0;    // frames in the channels
        std::size_t announced = 0;  // frames handed to the listener
        std::size_t total = 0;      // frames streamed through earlier turns of the window
        for (;;) {
            const auto pulled = decoder.pull();
            if (pulled == FfmpegDecoder::Pull::end) break;
            if (pulled == FfmpegDecoder::Pull::error) return fail(Code::corruptFile);
            if (listener_ && !listener_->wantsMore()) return fail(Code::cannotRead);
            const std::size_t length = decoder.frameLength();
            if (length == 0) continue;
            // Velmora neither resamples nor remaps: a stream that changes shape midway cannot
            // be measured as one signal.
            if (decoder.frameChannelCount() != channelCount || decoder.frameSampleRate() != int(audio_.sampleRate))
                return fail(Code::corruptFile);
            if (streaming_ && decoded + length > audio_.frameCount()) {
                // Back to the start of the window once the listener is done with all of it.
                if (decoded > announced) listener_->framesDecoded(audio_, announced, decoded);
                quiesce();
                total += decoded;
                decoded = announced = 0;
            }
            if (decoded + length > audio_.frameCount() && !grow(decoded + length)) return fail(Code::tooLarge);
            for (std::size_t c = 0; c < destination.size(); ++c) destination[c] = audio_.channels[c].data() + decoded;
            if (decoder.convertFrame(destination.data()) != FfmpegDecoder::Conversion::ok)
                return fail(Code::corruptFile);
            decoded += length;
            if (listener_ && decoded - announced >= notifyInterval) {
                listener_->framesDecoded(audio_, announced, decoded);
                announced = decoded;
            }
        }
        if (total + decoded == 0) return fail(Code::corruptFile);
        if (listener_ && decoded > announced) listener_->framesDecoded(audio_, announced, decoded);
        quiesce();
        shrinkTo(streaming_ ? 0 : decoded);
        // Short of its stated length by more than a codec's padding: cut, even where the
        // container ended cleanly at the cut.
        const double got = double(total + decoded);
        audio_.truncated = decoder.truncated() ||
                           (decoder.lengthIsExact() && double(expected) - got > std::max(0.5 * audio_.sampleRate, 0.01 * got));
        audio_.declaredPositions = decoder.declaredPositions();
        if (int(audio_.declaredPositions.size()) != channelCount) audio_.declaredPositions.clear();
        return std::move(audio_);
    }

    // Compressed formats only estimate their length, so the channels may need to grow.
    bool grow(std::size_t needed) {
        const std::size_t current = audio_.frameCount();
        const std::size_t target = std::max(needed, current + current / 4 + notifyInterval);
        if (!fitsInMemory(target - current, audio_.channelCount())) return false;
        quiesce();
        for (auto& channel : audio_.channels) {
            // reserve first: resize alone would double the capacity.
            channel.reserve(target);
            channel.resize(target);
        }
        return true;
    }

    void shrinkTo(std::size_t frames) {
        for (auto& channel : audio_.channels) {
            channel.resize(frames);
            // Only give memory back when it is worth a copy: the channels live as long as the
            // measurement does.
            if (channel.capacity() - frames > frames / 16 + notifyInterval) channel.shrink_to_fit();
        }
    }

    // FFmpeg knows these containers by their content, so when one will not open or holds a
    // codec that cannot be decoded, the file is damaged rather than of a kind Velmora does not read.
    static Code unreadable(const std::string& path) {
        return contains(damagedWhenUnopenable, lowerExtension(path)) ? Code::corruptFile : Code::unsupportedFormat;
    }

    Expected<PlanarAudio> fail(Code code) {
        quiesce();
        // The video path has one message for every failure; only memory is worth telling apart.
        if (route_ == Route::video && code != Code::tooLarge) code = Code::cannotRead;
        return LoudnessError{code};
    }

    void quiesce() {
        if (listener_) listener_->quiesce();
    }

    Route route_;
    DecodeListener* listener_;
    bool streaming_ = false;
    PlanarAudio audio_;
};

}  // namespace

std::vector<std::string_view> acceptedExtensions() {
    std::vector<std::string_view> all(audioExtensions.begin(), audioExtensions.end());
    all.insert(all.end(), videoExtensions.begin(), videoExtensions.end());
    return all;
}

bool isAcceptedExtension(const std::string& path) {
    const std::string ext = lowerExtension(path);
    return contains(audioExtensions, ext) || contains(videoExtensions, ext);
}

bool isVideoPath(const std::string& path) { return contains(videoExtensions, lowerExtension(path)); }

Expected<PlanarAudio> readAudioFile(const std::string& path, DecodeListener* listener) {
    return Reading(Route::audioFile, listener).run(path);
}

Expected<PlanarAudio> readVideoAudio(const std::string& path, DecodeListener* listener) {
    return Reading(Route::video, listener).run(path);
}

Expected<PlanarAudio> loadAudio(const std::string& path, bool isVideo, DecodeListener* listener) {
    return isVideo ? readVideoAudio(path, listener) : readAudioFile(path, listener);
}

}  // namespace velmora
