#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <numbers>

#include "audio/AudioFileReader.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using test::ffmpeg;
using test::shellQuote;
using Channels = std::vector<std::vector<float>>;
using Code = LoudnessError::Code;
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

double levelDifferenceDb(const std::vector<float>& got, const std::vector<float>& want) {
    auto energy = [](const std::vector<float>& x) {
        double sum = 0;
        for (float v : x) sum += double(v) * v;
        return sum / double(x.size());
    };
    return 10 * std::log10(energy(got) / energy(want));
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

struct FormatCase {
    const char* file;
    const char* args;
    bool lossless;
    bool video = false;
};

void PrintTo(const FormatCase& c, std::ostream* os) { *os << c.file; }

class EveryFormat : public testing::TestWithParam<FormatCase> {
protected:
    static void SetUpTestSuite() {
        dir = std::make_unique<test::ScratchDir>();
        test::writeFloatWav(*dir / "source.wav", source, rate);
    }
    static void TearDownTestSuite() { dir.reset(); }
    static inline std::unique_ptr<test::ScratchDir> dir;
    static inline const Channels source = tones(2, rate);
};

TEST_P(EveryFormat, DecodesChannelsRateAndContent) {
    const FormatCase& fc = GetParam();
    const auto path = convert(*dir / "source.wav", *dir / fc.file, fc.args, fc.video);
    ASSERT_TRUE(isAcceptedExtension(path));
    ASSERT_EQ(isVideoPath(path), fc.video);
    auto audio = loadAudio(path, fc.video);
    ASSERT_TRUE(audio) << audio.error().message();
    ASSERT_EQ(audio->channelCount(), 2u);
    EXPECT_EQ(audio->sampleRate, rate);
    if (fc.lossless) {
        EXPECT_TRUE(audio->channels == source);
        return;
    }
    // Lossy codecs may keep their priming and padding: a couple of blocks at most.
    EXPECT_GE(audio->frameCount(), std::size_t(rate - 64));
    EXPECT_LE(audio->frameCount(), std::size_t(rate + 4096));
    for (std::size_t c = 0; c < 2; ++c) EXPECT_NEAR(levelDifferenceDb(audio->channels[c], source[c]), 0, 0.5) << c;
}

INSTANTIATE_TEST_SUITE_P(
    AudioFileReader, EveryFormat,
    testing::Values(FormatCase{"s16.wav", "-c:a pcm_s16le", true}, FormatCase{"s24.wav", "-c:a pcm_s24le", true},
                    FormatCase{"s32.wav", "-c:a pcm_s32le", true}, FormatCase{"f32.wav", "-c:a pcm_f32le", true},
                    FormatCase{"f64.wav", "-c:a pcm_f64le", true}, FormatCase{"be.aiff", "", true},
                    FormatCase{"be.aif", "-f aiff", true}, FormatCase{"s24.caf", "-c:a pcm_s24le", true},
                    FormatCase{"x.flac", "", true}, FormatCase{"x.mp3", "-c:a libmp3lame -b:a 192k", false},
                    FormatCase{"x.m4a", "-c:a aac -b:a 192k", false}, FormatCase{"x.aac", "-c:a aac -b:a 192k", false},
                    FormatCase{"pcm.mov", "-c:a pcm_s24le", true, true},
                    FormatCase{"aac.mp4", "-c:a aac -b:a 192k", false, true},
                    FormatCase{"aac.m4v", "-f mp4 -c:a aac -b:a 192k", false, true}),
    [](const auto& info) {
        std::string name = info.param.file;
        std::replace(name.begin(), name.end(), '.', '_');
        return name;
    });

// ---------------------------------------------------------------------------------------------

bool isSurroundPair(std::uint64_t left, std::uint64_t right) {
    return (left == backLeft && right == backRight) || (left == sideLeft && right == sideRight);
}

TEST(AudioFileReaderLayout, SurroundKeepsOrderRateAndDeclaredPositions) {
    test::ScratchDir dir;
    const Channels six = tones(6, 9600, 96000);
    test::writeFloatWav(dir / "six.wav", six, 96000);
    for (const char* name : {"51.wav", "51.flac"}) {
        const char* codec = std::string(name).ends_with("wav") ? " -c:a pcm_s24le" : "";
        auto audio = readAudioFile(convert(dir / "six.wav", dir / name, std::string("-channel_layout 5.1") + codec));
        ASSERT_TRUE(audio) << name;
        EXPECT_EQ(audio->sampleRate, 96000) << name;
        EXPECT_TRUE(audio->channels == six) << name;
        const auto& p = audio->declaredPositions;
        ASSERT_EQ(p.size(), 6u) << name;
        EXPECT_EQ(std::vector(p.begin(), p.begin() + 4),
                  (std::vector<std::uint64_t>{frontLeft, frontRight, frontCenter, lowFrequency}));
        EXPECT_TRUE(isSurroundPair(p[4], p[5])) << name;
    }
}

TEST(AudioFileReaderLayout, PositionsOnlyWhenTheFileDeclaresThem) {
    test::ScratchDir dir;
    test::writeFloatWav(dir / "plain5.wav", tones(5, 4800), rate);
    auto plain = readAudioFile((dir / "plain5.wav").string());
    ASSERT_TRUE(plain);
    EXPECT_TRUE(plain->declaredPositions.empty()) << "a WAV without channel mask says nothing about speakers";

    auto declared = readAudioFile(convert(dir / "plain5.wav", dir / "50.wav", "-channel_layout 5.0 -c:a pcm_s16le"));
    ASSERT_TRUE(declared);
    const auto& p = declared->declaredPositions;
    ASSERT_EQ(p.size(), 5u);
    EXPECT_EQ(std::vector(p.begin(), p.begin() + 3), (std::vector<std::uint64_t>{frontLeft, frontRight, frontCenter}));
    EXPECT_TRUE(isSurroundPair(p[3], p[4]));
}

TEST(AudioFileReaderLayout, VideoSoundHasNoChannelLimit) {
    test::ScratchDir dir;
    const Channels six = tones(6, rate);
    test::writeFloatWav(dir / "six.wav", six, rate);
    auto surround = readVideoAudio(convert(dir / "six.wav", dir / "51.mp4", "-c:a aac -b:a 384k", true));
    ASSERT_TRUE(surround);
    ASSERT_EQ(surround->channelCount(), 6u);
    for (std::size_t c : {0, 1, 2, 4, 5})  // the codec band-limits the LFE
        EXPECT_NEAR(levelDifferenceDb(surround->channels[c], six[c]), 0, 1.0) << c;

    test::writeFloatWav(dir / "24.wav", tones(24, 480), rate);
    auto many = readAudioFile((dir / "24.wav").string());
    ASSERT_FALSE(many);
    EXPECT_EQ(many.error(), (LoudnessError{Code::tooManyChannels, 24}));
    EXPECT_EQ(many.error().message(), "Trop de canaux (24). Maximum géré : 16.");
    auto video = readVideoAudio(convert(dir / "24.wav", dir / "24.mov", "-c:a pcm_s16le", true));
    ASSERT_TRUE(video);
    EXPECT_EQ(video->channelCount(), 24u);
}

// ---------------------------------------------------------------------------------------------

TEST(AudioFileReaderDamage, UnreadableFilesGiveTheirMessageAndQuiesce) {
    test::ScratchDir dir;
    test::writeFloatWav(dir / "ok.wav", tones(2, 480), rate);
    writeBytes(dir / "header.wav", readBytes(dir / "ok.wav").substr(0, 30));
    writeBytes(dir / "empty.wav", "");
    std::string noise;
    for (int i = 0; i < 4096; ++i) noise += char((i * 7919) & 0xff);
    writeBytes(dir / "noise.xyz", noise);
    writeBytes(dir / "notes.mp3", std::string(2000, 'x') + "\nnot a sound\n");
    Channels withNan = tones(2, 4 * rate);
    withNan[1][3 * rate + 17] = std::numeric_limits<float>::quiet_NaN();  // past the first announced chunk
    test::writeFloatWav(dir / "nan.wav", withNan, rate);
    ASSERT_TRUE(ffmpeg("-f lavfi -i color=c=black:s=32x32:r=5:d=1 -c:v mpeg4 " + shellQuote((dir / "mute.mp4").string())));

    const std::string corrupt = "Fichier illisible ou endommagé.";
    const std::string unsupported = "Format non pris en charge (essayez WAV, AIFF, MP4, MOV).";
    for (const auto& [file, message] : std::vector<std::pair<const char*, std::string>>{
             {"header.wav", corrupt}, {"empty.wav", corrupt}, {"missing.wav", corrupt}, {"nan.wav", corrupt},
             {"noise.xyz", unsupported}, {"notes.mp3", unsupported}, {"mute.mp4", "Impossible de lire ce fichier audio."}}) {
        RecordingListener listener;
        auto audio = loadAudio((dir / file).string(), isVideoPath(file), &listener);
        ASSERT_FALSE(audio) << file;
        EXPECT_EQ(audio.error().message(), message) << file;
        ASSERT_FALSE(listener.events.empty()) << file;
        EXPECT_EQ(listener.events.back().kind, 'q') << file;
    }
    EXPECT_EQ(readAudioFile((dir / "mute.mp4").string()).error().code, Code::noAudioTrack);
}

TEST(AudioFileReaderDamage, LyingLengthGivesTheFramesPresent) {
    test::ScratchDir dir;
    Channels source = tones(2, 4800);
    test::writeFloatWav(dir / "ok.wav", source, rate);
    convert(dir / "ok.wav", dir / "ok.aiff", "");
    for (auto& c : source) c.pop_back();  // the cut below stops mid-frame, like an interrupted recording
    // Each header's length field (WAV: data bytes, little-endian; AIFF: frames, big-endian) made huge.
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

TEST(AudioFileReaderDamage, LengthBeyondMemoryIsRefusedBeforeAllocating) {
    test::ScratchDir dir;
    const auto path = dir / "x.flac";
    ASSERT_TRUE(ffmpeg("-f lavfi -i sine=d=0.2 " + shellQuote(path.string())));
    std::string bytes = readBytes(path);
    ASSERT_EQ(bytes.substr(0, 4), "fLaC");
    // STREAMINFO's total length: the 36 bits that end its rate/channels/bits word.
    bytes[21] = char(bytes[21] | 0x0f);
    for (std::size_t i = 22; i < 26; ++i) bytes[i] = char(0xff);
    writeBytes(path, bytes);
    auto audio = readAudioFile(path.string());
    ASSERT_FALSE(audio);
    EXPECT_EQ(audio.error().code, Code::tooLarge);
}

// ---------------------------------------------------------------------------------------------

TEST(AudioFileReaderListener, SeesEveryFrameInOrderAndIsQuiescedBeforeChannelsMove) {
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
