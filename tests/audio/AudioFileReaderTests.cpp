// The reader round-trips every accepted container into planar float, keeps channel order,
// rate and declared speaker positions, takes a video's first audio track, reads to the end a
// stream whose header gives no true length, refuses bad input with the message the user sees,
// and keeps its contract with a listener that reads the channels while they are being decoded.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <numbers>
#include <numeric>
#include <tuple>

#include "audio/AudioFileReader.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using test::ffmpeg;
using test::shellQuote;
using Channels = std::vector<std::vector<float>>;
using namespace speaker;

constexpr int rate = 48000;

// A tone of its own level per channel, quantised to 16 bits so that every lossless format has
// to give it back bit for bit and a swapped channel shows.
Channels tones(std::size_t channels, std::size_t frames, int sampleRate = rate) {
    Channels out(channels, std::vector<float>(frames));
    for (std::size_t c = 0; c < channels; ++c)
        for (std::size_t i = 0; i < frames; ++i)
            out[c][i] = float(std::round(0.5 / double(c + 1) * 32767.0 *
                                         std::sin(2 * std::numbers::pi * (440.0 + 110.0 * double(c)) * double(i) /
                                                  sampleRate)) / 32768.0);
    return out;
}

std::string convert(const std::filesystem::path& from, const std::filesystem::path& to, const std::string& args,
                    bool withPicture = false) {
    const std::string picture = withPicture ? "-f lavfi -i color=c=black:s=32x32:r=5:d=1 " : "";
    const std::string maps = withPicture ? " -map 0:v -map 1:a -c:v mpeg4 -shortest " : " ";
    EXPECT_TRUE(ffmpeg(picture + "-i " + shellQuote(from.string()) + maps + args + " " + shellQuote(to.string())));
    return to.string();
}

void writeBytes(const std::filesystem::path& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

std::string readBytes(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct RecordingListener : DecodeListener {
    struct Event {
        char kind;  // 's'tarted, 'f'ramesDecoded, 'q'uiesce
        std::size_t begin = 0, end = 0;
        const float* storage = nullptr;
    };
    std::vector<Event> events;
    Channels announced;  // each announced range, copied when announced

    void started(const PlanarAudio& audio, std::size_t expected) override {
        events.push_back({'s', 0, expected, audio.channels[0].data()});
        announced.assign(audio.channelCount(), {});
    }
    void framesDecoded(const PlanarAudio& audio, std::size_t begin, std::size_t end) override {
        events.push_back({'f', begin, end, audio.channels[0].data()});
        for (std::size_t c = 0; c < audio.channelCount(); ++c)
            announced[c].insert(announced[c].end(), audio.channels[c].begin() + long(begin),
                                audio.channels[c].begin() + long(end));
    }
    void quiesce() override { events.push_back({'q'}); }

    // One start, every frame announced once and in order in large chunks, channels never moved
    // under the listener unless it was quiesced first, and a final quiesce.
    void expectWatched(const PlanarAudio& audio) const {
        ASSERT_GE(events.size(), 3u);
        EXPECT_EQ(events.front().kind, 's');
        EXPECT_EQ(events.back().kind, 'q');
        std::size_t next = 0;
        const float* storage = events.front().storage;
        bool quiesced = false;
        for (auto e = events.begin() + 1; e != events.end(); ++e) {
            EXPECT_NE(e->kind, 's');
            quiesced = quiesced || e->kind == 'q';
            if (e->kind != 'f') continue;
            EXPECT_EQ(e->begin, next);
            EXPECT_TRUE(e->end == audio.frameCount() || e->end - e->begin >= 65536) << "too many small chunks";
            EXPECT_TRUE(e->storage == storage || quiesced) << "channels moved while the listener was reading them";
            storage = e->storage;
            quiesced = false;
            next = e->end;
        }
        EXPECT_EQ(next, audio.frameCount());
        EXPECT_TRUE(announced == audio.channels) << "announced frames changed afterwards";
    }
};

// ---------------------------------------------------------------------------------------------

class LosslessFormat : public testing::TestWithParam<std::tuple<const char*, const char*>> {};

TEST_P(LosslessFormat, GivesBackEverySampleAtItsRate) {
    const auto [file, args] = GetParam();
    test::ScratchDir dir;
    test::writeFloatWav(dir / "source.wav", tones(2, rate), rate);
    const auto path = convert(dir / "source.wav", dir / file, args, isVideoPath(file));
    ASSERT_TRUE(isAcceptedExtension(path));
    auto audio = loadAudio(path, isVideoPath(file));
    ASSERT_TRUE(audio) << audio.error().message();
    EXPECT_EQ(audio->sampleRate, rate);
    EXPECT_TRUE(audio->channels == tones(2, rate));
}

INSTANTIATE_TEST_SUITE_P(AudioFileReader, LosslessFormat,
                         testing::Values(std::tuple{"s16.wav", "-c:a pcm_s16le"}, std::tuple{"s24.wav", "-c:a pcm_s24le"},
                                         std::tuple{"f64.wav", "-c:a pcm_f64le"}, std::tuple{"be.aiff", ""},
                                         std::tuple{"s24.caf", "-c:a pcm_s24le"}, std::tuple{"x.flac", ""},
                                         std::tuple{"pcm.mov", "-c:a pcm_s24le"}));

TEST(AudioFileReader, LossyFormatsKeepLevelAndLength) {
    test::ScratchDir dir;
    const Channels source = tones(2, rate);
    test::writeFloatWav(dir / "source.wav", source, rate);
    const auto energy = [](const std::vector<float>& x) {
        return std::inner_product(x.begin(), x.end(), x.begin(), 0.0) / double(x.size());
    };
    for (const auto& [file, args] : {std::pair{"x.mp3", "-c:a libmp3lame -b:a 192k"}, std::pair{"x.m4a", "-c:a aac -b:a 192k"},
                                     std::pair{"x.aac", "-c:a aac -b:a 192k"}, std::pair{"aac.mp4", "-c:a aac -b:a 192k"}}) {
        auto audio = loadAudio(convert(dir / "source.wav", dir / file, args, isVideoPath(file)), isVideoPath(file));
        ASSERT_TRUE(audio) << file;
        ASSERT_EQ(audio->channelCount(), 2u) << file;
        EXPECT_EQ(audio->sampleRate, rate) << file;
        // Lossy codecs may keep their priming and padding: a couple of blocks at most.
        EXPECT_GE(audio->frameCount(), std::size_t(rate - 64)) << file;
        EXPECT_LE(audio->frameCount(), std::size_t(rate + 4096)) << file;
        for (std::size_t c = 0; c < 2; ++c)
            EXPECT_NEAR(10 * std::log10(energy(audio->channels[c]) / energy(source[c])), 0, 0.5) << file << " " << c;
    }
}

TEST(AudioFileReader, SurroundKeepsOrderRateAndDeclaredPositions) {
    test::ScratchDir dir;
    const Channels six = tones(6, 9600, 96000);
    test::writeFloatWav(dir / "six.wav", six, 96000);
    for (const auto& [name, codec] : {std::pair{"51.wav", " -c:a pcm_s24le"}, std::pair{"51.flac", ""}}) {
        auto audio = readAudioFile(convert(dir / "six.wav", dir / name, std::string("-channel_layout 5.1") + codec));
        ASSERT_TRUE(audio) << name;
        EXPECT_EQ(audio->sampleRate, 96000) << name;
        EXPECT_TRUE(audio->channels == six) << name;
        const auto& p = audio->declaredPositions;
        ASSERT_EQ(p.size(), 6u) << name;
        EXPECT_EQ(std::vector(p.begin(), p.begin() + 4),
                  (std::vector<std::uint64_t>{frontLeft, frontRight, frontCenter, lowFrequency}));
        EXPECT_TRUE((p[4] == backLeft && p[5] == backRight) || (p[4] == sideLeft && p[5] == sideRight)) << name;
    }
    // A WAV without a channel mask says nothing; the user's 5.1 order must decide for it.
    auto bare = readAudioFile((dir / "six.wav").string());
    ASSERT_TRUE(bare);
    EXPECT_TRUE(bare->declaredPositions.empty());
}

TEST(AudioFileReader, BadInputGivesItsMessageOrTheFramesPresent) {
    test::ScratchDir dir;
    Channels source = tones(2, 4800);
    test::writeFloatWav(dir / "ok.wav", source, rate);
    writeBytes(dir / "header.wav", readBytes(dir / "ok.wav").substr(0, 30));
    writeBytes(dir / "noise.xyz", std::string(4096, char(0x9d)));
    Channels withNan = tones(2, 4 * rate);
    withNan[1][3 * rate + 17] = std::numeric_limits<float>::quiet_NaN();  // past the first announced chunk
    test::writeFloatWav(dir / "nan.wav", withNan, rate);
    test::writeFloatWav(dir / "24.wav", tones(24, 480), rate);
    ASSERT_TRUE(ffmpeg("-f lavfi -i color=c=black:s=32x32:r=5:d=1 -c:v mpeg4 " + shellQuote((dir / "mute.mp4").string())));
    // A well-formed WAV whose format tag names a codec FFmpeg has no decoder for.
    std::string unknownCodec = readBytes(dir / "ok.wav");
    unknownCodec.replace(20, 2, "\x3f\x3f", 2);
    writeBytes(dir / "codec.wav", unknownCodec);
    writeBytes(dir / "codec.xyz", unknownCodec);

    const std::string corrupt = "Fichier illisible ou endommagé.";
    const std::string unsupported = "Format non pris en charge (essayez WAV, AIFF, MP4, MOV).";
    for (const auto& [file, message] : {std::pair{"header.wav", corrupt}, {"missing.wav", corrupt}, {"nan.wav", corrupt},
                                        {"codec.wav", corrupt}, {"noise.xyz", unsupported}, {"codec.xyz", unsupported},
                                        {"mute.mp4", "Impossible de lire ce fichier audio."},
                                        {"24.wav", "Trop de canaux (24). Maximum géré : 16."}}) {
        RecordingListener listener;
        auto audio = loadAudio((dir / file).string(), isVideoPath(file), &listener);
        ASSERT_FALSE(audio) << file;
        EXPECT_EQ(audio.error().message(), message) << file;
        EXPECT_TRUE(!listener.events.empty() && listener.events.back().kind == 'q') << file << " was not quiesced";
    }

    // A header whose length field (WAV: data bytes, little-endian; AIFF: frames, big-endian) is
    // made huge, in a file cut mid-frame like an interrupted recording.
    convert(dir / "ok.wav", dir / "ok.aiff", "");
    for (auto& c : source) c.pop_back();
    for (const auto& [file, field, offset] : {std::tuple{"ok.wav", "data", 4}, std::tuple{"ok.aiff", "COMM", 10}}) {
        std::string bytes = readBytes(dir / file);
        bytes.replace(bytes.find(field) + offset, 4, "\x10\x00\x00\x10", 4);
        bytes.resize(bytes.size() - 3);
        writeBytes(dir / file, bytes);
        RecordingListener listener;
        auto audio = readAudioFile((dir / file).string(), &listener);
        ASSERT_TRUE(audio) << file;
        EXPECT_TRUE(audio->channels == source) << file;
        EXPECT_LE(listener.events.front().end * 4, bytes.size()) << file << ": memory for frames the file cannot hold";
    }
}

TEST(AudioFileReader, VideoIsReadOnItsFirstAudioTrack) {
    test::ScratchDir dir;
    const Channels main = tones(2, rate);
    Channels second = main;
    for (auto& channel : second)
        for (float& x : channel) x /= 8;
    test::writeFloatWav(dir / "main.wav", main, rate);
    test::writeFloatWav(dir / "second.wav", second, rate);
    // Both tracks flagged default, the second at the higher bit rate: FFmpeg's own choice of a
    // best stream would take the second.
    const auto movie = dir / "two tracks.mov";
    ASSERT_TRUE(ffmpeg("-f lavfi -i color=c=black:s=32x32:r=5:d=1 -i " + shellQuote((dir / "main.wav").string()) +
                       " -i " + shellQuote((dir / "second.wav").string()) +
                       " -map 0:v -map 1:a -map 2:a -c:v mpeg4 -c:a:0 pcm_s16le -c:a:1 pcm_s24le"
                       " -disposition:a:0 default -disposition:a:1 default " +
                       shellQuote(movie.string())));
    auto audio = readVideoAudio(movie.string());
    ASSERT_TRUE(audio) << audio.error().message();
    EXPECT_TRUE(audio->channels == main) << "not the first audio track";
}

TEST(AudioFileReader, StreamsWithoutATrueLengthDecodeToTheirEnd) {
    test::ScratchDir dir;
    const Channels source = tones(2, 3 * rate);
    test::writeFloatWav(dir / "source.wav", source, rate);
    // Written to a pipe, the muxer cannot go back to fill in the length.
    for (const auto& [file, args] : {std::pair{"piped.wav", "-c:a pcm_s16le -f wav"}, std::pair{"piped.flac", "-f flac"}}) {
        const auto path = (dir / file).string();
        ASSERT_TRUE(ffmpeg("-i " + shellQuote((dir / "source.wav").string()) + " " + args + " - > " + shellQuote(path)));
        RecordingListener listener;
        auto audio = readAudioFile(path, &listener);
        ASSERT_TRUE(audio) << file << ": " << audio.error().message();
        EXPECT_TRUE(audio->channels == source) << file;
        listener.expectWatched(*audio);
    }

    // A FLAC header claiming the largest length its 36-bit field holds, far more than memory:
    // the file must still read, since what counts is what decodes.
    std::string bytes = readBytes(convert(dir / "source.wav", dir / "claims.flac", ""));
    ASSERT_EQ(bytes.substr(0, 4), "fLaC");
    bytes[21] = char(bytes[21] | 0x0f);
    bytes.replace(22, 4, "\xff\xff\xff\xff", 4);
    writeBytes(dir / "claims.flac", bytes);
    auto claims = readAudioFile((dir / "claims.flac").string());
    ASSERT_TRUE(claims) << claims.error().message();
    EXPECT_TRUE(claims->channels == source);
}

TEST(AudioFileReader, ListenerSeesEveryFrameInOrderAndIsQuiescedBeforeChannelsMove) {
    test::ScratchDir dir;
    test::writeFloatWav(dir / "long.wav", tones(2, 5 * rate), rate);
    RecordingListener exact;
    auto wav = readAudioFile((dir / "long.wav").string(), &exact);
    ASSERT_TRUE(wav);
    EXPECT_EQ(exact.events.front().end, wav->frameCount()) << "a WAV announces its exact length";
    exact.expectWatched(*wav);

    // AAC in MP4 decodes past its announced length (its last block is padded), so the channels
    // grow while the listener watches.
    RecordingListener growing;
    auto m4a = readAudioFile(convert(dir / "long.wav", dir / "long.m4a", "-c:a aac"), &growing);
    ASSERT_TRUE(m4a);
    EXPECT_GT(m4a->frameCount(), growing.events.front().end);
    growing.expectWatched(*m4a);
}

}  // namespace
}  // namespace velmora
