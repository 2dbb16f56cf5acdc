// A master past the 4 GiB that RIFF's 32-bit sizes can describe: written as RF64, and read back
// whole by libsndfile, FFmpeg and Velmora's own analysis.
#include <fcntl.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <numbers>

#include "measurement/FileAnalysis.h"
#include "output/BroadcastWave.h"
#include "output/OutputTestSupport.h"

namespace velmora {
namespace {

using namespace test;

TEST(LargeMaster, PastFourGibibytesIsRF64AndReadsBackWhole) {
    constexpr double fs = 48000.0;
    // Stereo float: 8 bytes a frame, so 2^29 frames fill 4 GiB; one second more crosses it.
    constexpr std::size_t frames = (std::size_t(1) << 29) + 48000;
    Channels big(2);
    {
        // A 1 kHz sine at −20 dBFS repeats every 48 samples: one period, copied.
        std::vector<float> period(48);
        for (std::size_t i = 0; i < period.size(); ++i)
            period[i] = float(0.1 * std::sin(2 * std::numbers::pi * 1000.0 * double(i) / fs));
        big[0].resize(frames);
        for (std::size_t i = 0; i < frames; i += period.size())
            std::copy_n(period.begin(), std::min(period.size(), frames - i), big[0].begin() + std::ptrdiff_t(i));
        big[1] = big[0];
    }
    ScratchDir dir;
    const auto path = dir / "film.wav";
    auto written = writeMaster(big, fs, {.destination = path, .depth = BitDepth::float32});
    big = Channels{};  // the readers below hold their own copies
    ASSERT_TRUE(written) << written.error().message();
    EXPECT_EQ(written->frames, frames);

    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    ASSERT_TRUE(file) << sf_strerror(nullptr);
    EXPECT_EQ(info.format & SF_FORMAT_TYPEMASK, SF_FORMAT_RF64);
    EXPECT_EQ(std::size_t(info.frames), frames);
    // A film's master keeps its Broadcast Wave chunk past 4 GiB too.
    SF_BROADCAST_INFO bext{};
    ASSERT_EQ(sf_command(file, SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
    EXPECT_STREQ(bext.originator, "Velmora");
    // The last frames are where a wrapped 32-bit size would lose them.
    std::vector<float> tail(2 * 48);
    ASSERT_EQ(sf_seek(file, sf_count_t(frames - 48), SEEK_SET), sf_count_t(frames - 48));
    EXPECT_EQ(sf_readf_float(file, tail.data(), 48), 48);
    sf_close(file);
    EXPECT_NEAR(tail[2 * 47], 0.1 * std::sin(2 * std::numbers::pi * 1000.0 * double(frames - 1) / fs), 1e-6);

    const auto ff = runCommand("ffprobe -v error -select_streams a:0 -count_packets -show_entries "
                               "stream=codec_name,duration_ts -of default=nw=1 " + shellQuote(path.string()));
    EXPECT_NE(ff.out.find("codec_name=pcm_f32le"), std::string::npos) << ff.out;
    EXPECT_NE(ff.out.find("duration_ts=" + std::to_string(frames)), std::string::npos) << ff.out;

    const auto analysed = analyseFile(path.string(), AnalysisSettings{});
    ASSERT_TRUE(analysed) << analysed.error().message();
    EXPECT_EQ(analysed->frameCount, frames);
    // Two channels of a −20 dBFS sine at 1 kHz: −23.0 dB of mean square each, +3.01 for two; the
    // K-weighting gain at 1 kHz offsets the −0.691.
    EXPECT_NEAR(analysed->result.integratedLUFS, -20.0, 0.1);
}

// The loudness fields are written once the master is measured, into the chunk already in the
// header: found the same way in an RF64 file, whose header starts otherwise.
TEST(LargeMaster, TheBextLoudnessFieldsArePatchedInAnRF64File) {
    ScratchDir dir;
    const auto path = dir / "rf64.wav";
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = 2;
    info.format = SF_FORMAT_RF64 | SF_FORMAT_PCM_24;
    SNDFILE* out = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_TRUE(out) << sf_strerror(nullptr);
    sf_command(out, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_FALSE);
    SF_BROADCAST_INFO written{};
    std::snprintf(written.originator, sizeof written.originator, "Velmora");
    written.version = 2;
    ASSERT_EQ(sf_command(out, SFC_SET_BROADCAST_INFO, &written, sizeof written), SF_TRUE);
    std::vector<float> silence(2 * 4800, 0.0f);
    sf_writef_float(out, silence.data(), 4800);
    sf_close(out);

    const int fd = ::open(path.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    EXPECT_TRUE(patchBextLoudness(fd, {-23.0, 7.5, -1.2, -17.0, -19.25}));
    ::close(fd);

    SF_INFO readInfo{};
    SNDFILE* in = sf_open(path.c_str(), SFM_READ, &readInfo);
    ASSERT_TRUE(in) << sf_strerror(nullptr);
    EXPECT_EQ(readInfo.format & SF_FORMAT_TYPEMASK, SF_FORMAT_RF64);
    SF_BROADCAST_INFO bext{};
    ASSERT_EQ(sf_command(in, SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
    sf_close(in);
    EXPECT_STREQ(bext.originator, "Velmora");
    EXPECT_EQ(bext.loudness_value, -2300);
    EXPECT_EQ(bext.loudness_range, 750);
    EXPECT_EQ(bext.max_true_peak_level, -120);
    EXPECT_EQ(bext.max_momentary_loudness, -1700);
    EXPECT_EQ(bext.max_shortterm_loudness, -1925);
}

}  // namespace
}  // namespace velmora
