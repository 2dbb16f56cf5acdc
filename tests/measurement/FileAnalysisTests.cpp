// One pass over a real file: measuring while decoding, through the reused window or into the
// whole buffer, must give the figures of measuring the decoded buffer afterwards, weigh the
// channels where the file says they are, and move the progress bar only forwards.
#include <gtest/gtest.h>

#include <limits>

#include <algorithm>

#include "Signals.h"
#include "measurement/Diagnostics.h"
#include "measurement/FileAnalysis.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using namespace signals;

void expectSameResult(const LoudnessResult& a, const LoudnessResult& b) {
    EXPECT_NEAR(a.integratedLUFS, b.integratedLUFS, 1e-9);
    ASSERT_EQ(a.loudnessRange.has_value(), b.loudnessRange.has_value());
    if (a.loudnessRange) {
        EXPECT_NEAR(*a.loudnessRange, *b.loudnessRange, 1e-9);
    }
    EXPECT_NEAR(a.momentaryMax, b.momentaryMax, 1e-9);
    EXPECT_NEAR(a.shortTermMax, b.shortTermMax, 1e-9);
    EXPECT_DOUBLE_EQ(a.truePeakDB, b.truePeakDB);
}

TEST(FileAnalysis, StreamedWindowAndWholeBufferAgreeWithTheEngine) {
    // 50 s at 48 kHz: the streaming window wraps twice.
    constexpr double fs = 48000;
    auto left = toneSequence(997, {{-30, 10}, {-20, 15}, {-35, 10}, {-12, 5}, {-26, 10}}, fs);
    auto right = toneSequence(440, {{-24, 25}, {-40, 25}}, fs);
    test::ScratchDir dir;
    test::writeFloatWav(dir / "programme.wav", {left, right}, int(fs));
    const auto path = (dir / "programme.wav").string();

    AnalysisSettings whole;
    whole.keepAudio = true;
    const auto kept = analyseFile(path, whole);
    const auto streamed = analyseFile(path, AnalysisSettings{});
    ASSERT_TRUE(kept && streamed);
    ASSERT_EQ(kept->audio.frameCount(), left.size());
    EXPECT_EQ(streamed->frameCount, left.size());
    EXPECT_EQ(streamed->audio.frameCount(), 0u) << "the streamed pass keeps no samples";
    EXPECT_EQ(streamed->channelCount, 2);

    const std::vector<double> w{1.0, 1.0};
    const auto reference = LoudnessEngine::measure({left, right}, w, fs);
    expectSameResult(kept->result, reference);
    expectSameResult(streamed->result, reference);
    EXPECT_EQ(streamed->infoLine(), "0:50 · stéréo · 48.0 kHz");
}

// The overview computed while decoding against the whole-buffer functions over the decoded
// programme: lengths that divide into nothing, shorter than the waveform's points, shorter and
// just long enough for one spectrum frame, compressed files whose announced length is only an
// estimate, and a stream written through a pipe that announces none.
TEST(FileAnalysis, TheOverviewWhileDecodingEqualsTheWholeBufferFunctions) {
    constexpr double fs = 44100;
    test::ScratchDir dir;
    const auto noise = [](std::size_t n, std::uint32_t seed, float level) {
        std::vector<float> x(n);
        for (auto& v : x) {
            seed = seed * 1664525u + 1013904223u;
            v = level * (float(seed >> 8) / float(1 << 24) * 2.0f - 1.0f);
        }
        return x;
    };
    struct Case {
        std::string file;
        std::size_t frames, channels;
        std::string encode;  // empty: the float WAV itself
    };
    const std::vector<Case> cases{
        {"odd.wav", 7 * 44100 + 1237, 2, ""},
        {"many.wav", 3 * 44100 + 977, 6, ""},
        {"tiny.wav", 1000, 1, ""},
        {"justone.wav", 4096, 2, ""},
        {"tooshort.wav", 4095, 2, ""},
        {"odd.flac", 5 * 44100 + 313, 2, "-c:a flac"},
        {"odd.m4a", 6 * 44100 + 71, 2, "-c:a aac -b:a 256k"},
        {"odd.mp3", 4 * 44100 + 555, 2, "-c:a libmp3lame -b:a 192k"},
        {"piped.wav", 3 * 44100 + 17, 2, "pipe"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        Channels programme;
        for (std::size_t ch = 0; ch < c.channels; ++ch) {
            auto x = noise(c.frames, 7u + std::uint32_t(ch), 0.3f);
            // A loud crest per channel, where a bucket boundary does not fall.
            x[(c.frames * (ch + 1)) / (c.channels + 2) + 3] = 0.9f - 0.1f * float(ch);
            programme.push_back(std::move(x));
        }
        std::string path = (dir / c.file).string();
        if (c.encode.empty()) {
            test::writeFloatWav(path, programme, int(fs));
        } else {
            const auto bare = (dir / ("bare-" + c.file + ".wav")).string();
            test::writeFloatWav(bare, programme, int(fs));
            if (c.encode == "pipe")
                ASSERT_TRUE(test::ffmpeg("-i " + test::shellQuote(bare) + " -c:a pcm_s16le -f wav - > " + test::shellQuote(path)));
            else
                ASSERT_TRUE(test::ffmpeg("-i " + test::shellQuote(bare) + " " + c.encode + " " + test::shellQuote(path)));
        }
        AnalysisSettings keep;
        keep.keepAudio = true;
        const auto whole = analyseFile(path, keep);
        AnalysisSettings streaming;
        streaming.overview = true;
        const auto streamed = analyseFile(path, streaming);
        ASSERT_TRUE(whole && streamed);
        const Channels& decoded = whole->audio.channels;
        EXPECT_EQ(streamed->waveformPeaks, waveformPeaks(decoded));
        const auto bins = spectrum(decoded, 256, whole->sampleRate);
        ASSERT_EQ(streamed->spectrumBins.size(), bins.size());
        for (std::size_t b = 0; b < bins.size(); ++b) EXPECT_NEAR(streamed->spectrumBins[b], bins[b], 1e-6) << b;
        if (c.frames == 4095) {
            EXPECT_TRUE(bins.empty());
        } else if (c.frames == 4096) {
            EXPECT_EQ(bins.size(), 256u);
        } else if (c.frames < 1024) {
            EXPECT_EQ(streamed->waveformPeaks[c.frames], 0.0f);
        }
        EXPECT_EQ(streamed->waveformPeaks.size(), 1024u);
    }
}

TEST(FileAnalysis, SwappedCentreAndLfeAreNoticedWhileStreaming) {
    constexpr double fs = 48000;
    const std::size_t n = framesFor(5.0, fs);
    Channels ch(6, std::vector<float>(n, 0.0f));
    ch[0] = sine(1000, -20, n, fs);
    ch[2] = sine(50, -20, n, fs);    // centre position carries sub-bass only
    ch[3] = sine(1000, -20, n, fs);  // LFE position carries a mid tone
    test::ScratchDir dir;
    test::writeFloatWav(dir / "six.wav", ch, int(fs));
    const auto expectSwapAt2And3 = [](const std::string& path, const AnalysisSettings& s) {
        const auto a = analyseFile(path, s);
        ASSERT_TRUE(a);
        ASSERT_TRUE(a->inversion.has_value());
        EXPECT_EQ(a->inversion->suspectedCenterIndex, 2);
        EXPECT_EQ(a->inversion->suspectedLFEIndex, 3);
        EXPECT_GT(a->inversion->centerSubRatio, 0.95);
        EXPECT_LT(a->inversion->lfeSubRatio, 0.05);
    };
    for (bool keep : {false, true}) {
        SCOPED_TRACE(keep ? "kept" : "streamed");
        AnalysisSettings s;
        s.keepAudio = keep;
        expectSwapAt2And3((dir / "six.wav").string(), s);
    }
    // Declared positions place the centre and the LFE, whatever order the user picked.
    const auto flac = (dir / "six.flac").string();
    ASSERT_TRUE(test::ffmpeg("-i " + test::shellQuote((dir / "six.wav").string()) + " -channel_layout 5.1 " +
                             test::shellQuote(flac)));
    for (ChannelOrder order : allChannelOrders) {
        SCOPED_TRACE(std::string(rawValue(order)));
        AnalysisSettings s;
        s.order = order;
        expectSwapAt2And3(flac, s);
    }
}

TEST(FileAnalysis, DeclaredSurroundReadsTheSameUnderEveryOrderSetting) {
    // A level of its own per channel and a loud LFE: weighing any channel as if it sat
    // elsewhere moves the reading by far more than the tolerance.
    constexpr double fs = 48000;
    const std::size_t n = framesFor(6.0, fs);
    const Channels programme{sine(1000, -18, n, fs), sine(500, -24, n, fs),  sine(700, -14, n, fs),
                             sine(60, -6, n, fs),    sine(1500, -30, n, fs), sine(2000, -36, n, fs)};
    const double truth = LoudnessEngine::measure(programme, *layoutWeights(ChannelLayout::s51), fs).integratedLUFS;

    test::ScratchDir dir;
    const auto bare = (dir / "bare.wav").string();
    test::writeFloatWav(bare, programme, int(fs));
    const std::pair<const char*, const char*> encodings[] = {{"mask.wav", "-c:a pcm_s24le"},
                                                             {"x.flac", ""},
                                                             {"x.m4a", "-c:a aac -b:a 384k"},
                                                             {"x.ac3", "-c:a ac3 -b:a 448k"}};
    for (const auto& [file, args] : encodings)
        ASSERT_TRUE(test::ffmpeg("-i " + test::shellQuote(bare) + " -channel_layout 5.1 " + args + " " +
                                 test::shellQuote((dir / file).string())));

    for (ChannelOrder order : allChannelOrders) {
        SCOPED_TRACE(std::string(rawValue(order)));
        AnalysisSettings s;
        s.order = order;
        for (const auto& [file, args] : encodings) {
            const auto a = analyseFile((dir / file).string(), s);
            ASSERT_TRUE(a) << file;
            EXPECT_NEAR(a->result.integratedLUFS, truth, 0.15) << file;
        }
        // A file that declares nothing is read through the chosen order.
        const auto a = analyseFile(bare, s);
        ASSERT_TRUE(a);
        const auto w = orderWeights(order);
        EXPECT_NEAR(a->result.integratedLUFS, LoudnessEngine::measure(programme, w, fs).integratedLUFS, 1e-6);
    }
}

TEST(FileAnalysis, ProgressOnlyClimbsOnALongProgramme) {
    // Five minutes at 48 kHz: on anything past about four, the first slice measured was less
    // than the 2 % the measurement reports on starting, and the bar went back.
    test::ScratchDir dir;
    const auto path = (dir / "long.wav").string();
    ASSERT_TRUE(test::ffmpeg("-f lavfi -i sine=frequency=997:sample_rate=48000:duration=300 -c:a pcm_s16le " +
                             test::shellQuote(path)));
    const auto expectClimbsToOne = [](const std::vector<double>& seen) {
        if (seen.empty()) return ADD_FAILURE() << "no progress at all";
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end())) << "went back";
        EXPECT_GE(seen.front(), 0.0);
        EXPECT_EQ(seen.back(), 1.0);
    };

    PlanarAudio kept;
    for (int mode = 0; mode < 3; ++mode) {
        SCOPED_TRACE(mode);
        AnalysisSettings s;
        s.keepAudio = mode == 1;
        s.dialogueGating = mode == 2;
        std::vector<double> seen;
        auto a = analyseFile(path, s, [&](double f) { seen.push_back(f); });
        ASSERT_TRUE(a);
        expectClimbsToOne(seen);
        if (s.dialogueGating) continue;
        // Decoding and measuring own the bar up to 0.95, and move it on the way there.
        ASSERT_GE(seen.size(), 2u);
        EXPECT_DOUBLE_EQ(seen.end()[-2], 0.95);
        EXPECT_GT(std::count_if(seen.begin(), seen.end(), [](double f) { return f > 0.1 && f < 0.9; }), 10);
        if (s.keepAudio) kept = std::move(a->audio);
    }

    std::vector<double> seen;
    LoudnessEngine::measure(kept.channels, mono, kept.sampleRate, [&](double f) { seen.push_back(f); });
    expectClimbsToOne(seen);
}

TEST(FileAnalysis, DialogueGatingAndUnreadableFiles) {
    constexpr double fs = 48000;
    test::ScratchDir dir;
    test::writeFloatWav(dir / "tone.wav", {sine(1000, -20, framesFor(6.0, fs), fs)}, int(fs));
    AnalysisSettings dialog;
    dialog.dialogueGating = true;
    const auto a = analyseFile((dir / "tone.wav").string(), dialog);
    ASSERT_TRUE(a);
    ASSERT_TRUE(a->result.programmeLUFS.has_value());
    EXPECT_NEAR(*a->result.programmeLUFS, -23.0, 0.05);
    EXPECT_EQ(a->result.integratedLUFS, -std::numeric_limits<double>::infinity()) << "a steady tone is no speech";
    EXPECT_EQ(a->unmeasurableReason(), std::string("Aucun dialogue détecté"));

    const auto missing = analyseFile((dir / "missing.wav").string(), AnalysisSettings{});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, LoudnessError::Code::corruptFile);
}

}  // namespace
}  // namespace velmora
