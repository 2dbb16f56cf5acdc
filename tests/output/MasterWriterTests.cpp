// Masters read back through libsndfile and FFmpeg: container, depth, byte order, rate and
// speaker layout as declared, every sample within half a quantisation step of the buffer, and
// exactly the samples the observer was shown.
#include <cmath>
#include <numbers>

#include "audio/AudioFileReader.h"
#include "output/OutputTestSupport.h"

namespace velmora {
namespace {

using namespace test;

Channels tones(std::size_t channels, std::size_t frames, double rate, double amplitude = 0.5, double hz = 997.0) {
    Channels out(channels, std::vector<float>(frames));
    for (std::size_t c = 0; c < channels; ++c)
        for (std::size_t i = 0; i < frames; ++i)
            out[c][i] = float(amplitude / double(c + 1) * std::sin(2 * std::numbers::pi * hz * double(i) / rate));
    return out;
}

struct FormatCase {
    FileFormat format;
    BitDepth depth;
    int container, codec;
    const char* ffmpegCodec;
};

class EachFormatAndDepth : public ::testing::TestWithParam<FormatCase> {};

TEST_P(EachFormatAndDepth, StoresEverySampleWithinHalfAStepAndExactlyWhatTheObserverSaw) {
    const FormatCase& c = GetParam();
    ScratchDir dir;
    Channels in = tones(2, 4800, 48000.0);
    in[0][1] = 1.5f;  // beyond full scale: integers clip, floats keep it
    in[1][1] = -1.5f;
    const auto path = dir / ("m." + std::string(extension(c.format)));
    RecordingObserver seen;
    auto report = writeMaster(in, 48000.0, {.destination = path, .depth = c.depth}, &seen);
    ASSERT_TRUE(report) << report.error().message();

    const SndfileView sf = readWithSndfile(path);
    EXPECT_EQ(sf.info.format, c.container | c.codec);  // SF_ENDIAN_FILE: AIFF big-endian, WAV little
    EXPECT_EQ(sf.info.samplerate, 48000);
    EXPECT_EQ(sf.info.frames, 4800);
    auto ff = probe(path);
    EXPECT_EQ(ff["codec_name"], c.ffmpegCodec);
    EXPECT_EQ(ff["channel_layout"], "stereo");
    auto decoded = readAudioFile(path);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(seen.seen, decoded->channels);
    ASSERT_EQ(sf.channels, decoded->channels);
    const double step = isFloat(c.depth) ? 0.0 : std::ldexp(1.0, 1 - bits(c.depth));
    int off = 0;
    for (std::size_t ch = 0; ch < 2; ++ch)
        for (std::size_t i = 0; i < in[ch].size(); ++i) {
            const double want = step ? std::clamp(double(in[ch][i]), -1.0, 1.0 - step) : in[ch][i];
            off += std::fabs(decoded->channels[ch][i] - want) > step / 2;
        }
    EXPECT_EQ(off, 0);
}

INSTANTIATE_TEST_SUITE_P(
    MasterWriter, EachFormatAndDepth,
    ::testing::Values(FormatCase{FileFormat::wav, BitDepth::int16, SF_FORMAT_WAVEX, SF_FORMAT_PCM_16, "pcm_s16le"},
                      FormatCase{FileFormat::wav, BitDepth::int24, SF_FORMAT_WAVEX, SF_FORMAT_PCM_24, "pcm_s24le"},
                      FormatCase{FileFormat::wav, BitDepth::float32, SF_FORMAT_WAVEX, SF_FORMAT_FLOAT, "pcm_f32le"},
                      FormatCase{FileFormat::aiff, BitDepth::int16, SF_FORMAT_AIFF, SF_FORMAT_PCM_16, "pcm_s16be"},
                      FormatCase{FileFormat::aiff, BitDepth::int24, SF_FORMAT_AIFF, SF_FORMAT_PCM_24, "pcm_s24be"},
                      FormatCase{FileFormat::aiff, BitDepth::float32, SF_FORMAT_AIFF, SF_FORMAT_FLOAT, "pcm_f32be"}),
    [](const auto& info) {
        return std::string(rawValue(info.param.format)) + "_" + std::to_string(bits(info.param.depth)) +
               (isFloat(info.param.depth) ? "f" : "");
    });

struct LayoutCase {
    const char* name;
    std::size_t channels;
    std::optional<SpeakerLayout> layout;
    const char* ffmpegLayout;  // "" for none; AIFF is only checked up to its first three letters
    std::vector<int> aiffMap;  // as libsndfile reads the AIFF channel chunk back
};

// Channel i holds the level (i + 1) / 16, exact at every depth, so a channel stored under the
// wrong speaker shows.
TEST(MasterWriter, DeclaresEachLayoutAndKeepsEverySpeakerOnItsSignal) {
    using enum ChannelOrder;
    using namespace speaker;
    constexpr int L = SF_CHANNEL_MAP_LEFT, R = SF_CHANNEL_MAP_RIGHT, C = SF_CHANNEL_MAP_CENTER, LFE = SF_CHANNEL_MAP_LFE,
                  Ls = SF_CHANNEL_MAP_REAR_LEFT, Rs = SF_CHANNEL_MAP_REAR_RIGHT;
    const std::vector<LayoutCase> cases = {
        {"mono", 1, std::nullopt, "mono", {SF_CHANNEL_MAP_MONO}},
        {"stereo", 2, std::nullopt, "stereo", {L, R}},
        {"5.1 SMPTE", 6, std::nullopt, "5.1", {L, R, C, LFE, Ls, Rs}},
        {"5.1 film", 6, surround51Layout(film), "5.1", {L, C, R, Ls, Rs, LFE}},
        {"5.1 ITU", 6, surround51Layout(itu), "5.1", {L, R, Ls, Rs, C, LFE}},
        {"5.1 AAC", 6, surround51Layout(aac), "5.1", {C, L, R, Ls, Rs, LFE}},
        {"5.1 side", 6, SpeakerLayout{frontLeft, frontRight, frontCenter, lowFrequency, sideLeft, sideRight},
         "5.1(side)", {}},
        {"7.1", 8, std::nullopt, "7.1", {}},  // libsndfile has no tag past six channels
        {"3 channels", 3, std::nullopt, "", {}},
    };
    ScratchDir dir;
    for (const LayoutCase& c : cases)
        for (FileFormat format : allFileFormats) {
            SCOPED_TRACE(std::string(c.name) + " " + std::string(rawValue(format)));
            Channels in(c.channels);
            for (std::size_t i = 0; i < c.channels; ++i) in[i].assign(480, float(i + 1) / 16.0f);
            const auto path = dir / ("m." + std::string(extension(format)));
            ASSERT_TRUE(writeMaster(in, 48000.0, {.destination = path, .layout = c.layout}));
            const SpeakerLayout layout = c.layout.value_or(defaultLayout(c.channels).value_or(SpeakerLayout{}));
            const std::string ffLayout = probe(path)["channel_layout"];
            const auto decoded = readAudioFile(path);
            ASSERT_TRUE(decoded);
            const SndfileView sf = readWithSndfile(path);
            if (layout.empty()) {
                EXPECT_TRUE(ffLayout.empty() || ffLayout == "unknown") << ffLayout;
                EXPECT_TRUE(sf.map.empty());
            } else if (format == FileFormat::wav) {
                EXPECT_EQ(ffLayout, c.ffmpegLayout);
                // The mask lists speakers by bit: every channel must carry its own speaker's level.
                ASSERT_EQ(decoded->declaredPositions.size(), c.channels);
                for (std::size_t k = 0; k < c.channels; ++k) {
                    const auto at = std::find(layout.begin(), layout.end(), decoded->declaredPositions[k]);
                    ASSERT_NE(at, layout.end());
                    EXPECT_EQ(decoded->channels[k][0], float(at - layout.begin() + 1) / 16.0f);
                }
            } else {
                EXPECT_EQ(ffLayout.substr(0, 3), std::string(c.ffmpegLayout).substr(0, 3));
                EXPECT_EQ(sf.map, c.aiffMap);
            }
            if (format == FileFormat::aiff || layout.empty()) {
                for (std::size_t k = 0; k < c.channels; ++k) EXPECT_EQ(sf.channels[k][0], float(k + 1) / 16.0f);
            }
        }
}

TEST(MasterWriter, ConvertsRateKeepingPitchLevelAndExactLength) {
    ScratchDir dir;
    const Channels in = tones(2, 66150, 44100.0, 0.9, 1000.0);  // 1.5 s
    for (double rate : {48000.0, 96000.0}) {
        SCOPED_TRACE(rate);
        RecordingObserver seen;
        const auto path = dir / "up.wav";
        auto report = writeMaster(in, 44100.0, {.destination = path, .outputRate = rate}, &seen);
        ASSERT_TRUE(report);
        const auto frames = std::size_t(std::llround(66150 * rate / 44100.0));
        EXPECT_EQ(report->frames, frames);
        EXPECT_EQ(probe(path)["sample_rate"], std::to_string(int(rate)));
        const auto decoded = readAudioFile(path);
        ASSERT_TRUE(decoded);
        ASSERT_EQ(decoded->frameCount(), frames);
        EXPECT_EQ(seen.seen, decoded->channels);
        // One second from the middle: 2000 zero crossings and the sine's RMS, nothing clipped.
        const auto& x = decoded->channels[0];
        const std::size_t from = frames / 4, to = from + std::size_t(rate);
        int crossings = 0;
        double sum = 0, peak = 0;
        for (std::size_t i = from; i < to; ++i) {
            crossings += (x[i] < 0) != (x[i + 1] < 0);
            sum += double(x[i]) * x[i];
            peak = std::max(peak, double(std::fabs(x[i])));
        }
        EXPECT_NEAR(crossings, 2000, 1);
        EXPECT_NEAR(20 * std::log10(std::sqrt(sum / rate) / (0.9 / std::sqrt(2.0))), 0.0, 0.01);
        EXPECT_LT(peak, 0.9005);
    }
}

TEST(MasterWriter, SourceRateIsWrittenUnconvertedForOrigineOrAnAlmostEqualChoice) {
    ScratchDir dir;
    const Channels in = tones(1, 4410, 44100.0);
    for (auto [source, chosen] : {std::pair{44100.0, 0.0}, std::pair{48000.0, 48000.3}}) {
        const auto path = dir / "same.wav";
        ASSERT_TRUE(writeMaster(in, source, {.destination = path, .depth = BitDepth::float32, .outputRate = chosen}));
        const SndfileView sf = readWithSndfile(path);
        EXPECT_EQ(sf.info.samplerate, int(source));
        EXPECT_EQ(sf.channels, in);
    }
}

}  // namespace
}  // namespace velmora
