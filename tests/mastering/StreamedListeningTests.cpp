// Listening read from the file as it plays: what the stream delivers, block after block, against
// the streamer that holds the whole file folded and converted in memory. Real files, real
// decoding, real rate conversion.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <thread>

#include "audio/AudioFileReader.h"
#include "audio/ListeningStream.h"
#include "mastering/OnlineMasteringStreamer.h"
#include "support/TestSupport.h"

namespace velmora {
namespace {

using Pair = std::pair<std::vector<float>, std::vector<float>>;

// Never zero, no value twice in a long stretch, each channel its own: a shifted, swapped or
// wrongly mixed sample shows.
Channels programme(std::size_t channels, std::size_t frames) {
    Channels c(channels, std::vector<float>(frames));
    for (std::size_t ch = 0; ch < channels; ++ch)
        for (std::size_t k = 0; k < frames; ++k)
            c[ch][k] = float((ch % 2 ? -1.0 : 1.0) * (0.02 + 0.1 * double(ch + 1) / double(channels)) *
                             (0.3 + 0.7 * double((k * 7919 + ch * 104729) % 1000003) / 1000003.0));
    return c;
}

StreamShape shapeOf(const std::filesystem::path& file, const Channels& c, double rate) {
    return {file.string(), false, c.size(), c.front().size(), rate};
}

// `frames` frames the stream delivered, in render blocks of `block`, whatever silence it played
// while its ring filled (each block's delivered part only). `restarts` counts the seeks taken.
Pair delivered(OnlineMasteringStreamer& s, std::size_t frames, std::size_t block = 256, int* restarts = nullptr) {
    Pair out;
    std::vector<float> l(block), r(block);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (out.first.size() < frames && std::chrono::steady_clock::now() < deadline) {
        const ListeningStream::Block b = s.stream()->read(std::min(block, frames - out.first.size()), l.data(), r.data());
        if (restarts && b.restarted) ++*restarts;
        if (b.frames == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        out.first.insert(out.first.end(), l.begin(), l.begin() + std::ptrdiff_t(b.frames));
        out.second.insert(out.second.end(), r.begin(), r.begin() + std::ptrdiff_t(b.frames));
    }
    return out;
}

// The in-memory streamer's output for the same file (no stage on), from frame `from` on.
Pair heldRender(const Channels& c, double fileRate, double renderRate, std::int64_t from = 0) {
    OnlineMasteringStreamer held;
    EXPECT_EQ(held.init(c, fileRate, renderRate), std::nullopt);
    held.setLooping(false);
    const auto n = std::size_t(held.totalFrames());
    Pair out{std::vector<float>(n), std::vector<float>(n)};
    held.render(n, out.first.data(), out.second.data());
    out.first.erase(out.first.begin(), out.first.begin() + from);
    out.second.erase(out.second.begin(), out.second.begin() + from);
    return out;
}

float largestDifference(const std::vector<float>& a, const std::vector<float>& b) {
    EXPECT_EQ(a.size(), b.size());
    float worst = 0;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) worst = std::max(worst, std::fabs(a[i] - b[i]));
    return worst;
}

std::shared_ptr<OnlineMasteringStreamer> streamed(StreamShape shape, double renderRate, bool looping = false) {
    auto s = std::make_shared<OnlineMasteringStreamer>();
    s->init(std::make_shared<ListeningStream>(std::move(shape), renderRate, 0, looping));
    s->setLooping(looping);
    return s;
}

TEST(StreamedListening, DeliversWhatTheHeldStreamerRendersSampleForSample) {
    test::ScratchDir dir;
    {
        SCOPED_TRACE("stereo at the device's rate, longer than the ring many times over");
        const Channels file = programme(2, 200000);
        test::writeFloatWav(dir / "s.wav", file, 48000);
        auto s = streamed(shapeOf(dir / "s.wav", file, 48000), 48000);
        const Pair got = delivered(*s, 200000, 300);
        const Pair want = heldRender(file, 48000, 48000);
        EXPECT_EQ(got.first, want.first);
        EXPECT_EQ(got.second, want.second);
    }
    {
        SCOPED_TRACE("5.1 folded to stereo as it is read");
        const Channels file = programme(6, 60000);
        test::writeFloatWav(dir / "51.wav", file, 48000);
        auto s = streamed(shapeOf(dir / "51.wav", file, 48000), 48000);
        const Pair got = delivered(*s, 60000);
        const Pair want = heldRender(file, 48000, 48000);
        EXPECT_EQ(got.first, want.first);
        EXPECT_EQ(got.second, want.second);
    }
    {
        SCOPED_TRACE("a 44.1 kHz file on a 48 kHz device");
        const Channels file = programme(2, 100000);
        test::writeFloatWav(dir / "441.wav", file, 44100);
        auto s = streamed(shapeOf(dir / "441.wav", file, 44100), 48000);
        const Pair want = heldRender(file, 44100, 48000);
        ASSERT_EQ(s->totalFrames(), std::int64_t(want.first.size()));
        const Pair got = delivered(*s, want.first.size());
        EXPECT_LT(largestDifference(got.first, want.first), 1e-6f);
        EXPECT_LT(largestDifference(got.second, want.second), 1e-6f);
        EXPECT_TRUE(s->atEnd());
    }
}

TEST(StreamedListening, ASeekRestartsWhereAskedAndTheConversionMatchesTheWholeFile) {
    test::ScratchDir dir;
    const Channels file = programme(6, 150000);
    test::writeFloatWav(dir / "in.wav", file, 44100);
    auto s = streamed(shapeOf(dir / "in.wav", file, 44100), 48000);
    const Pair head = delivered(*s, 5000);
    ASSERT_EQ(head.first.size(), 5000u);
    // Far from any whole period of the two rates, and far past the first ring's worth.
    for (const std::int64_t to : {std::int64_t(97531), std::int64_t(20011), std::int64_t(3)}) {
        SCOPED_TRACE(to);
        s->stream()->seek(to);
        EXPECT_EQ(s->stream()->playhead(), to);  // shown at once, before it is heard
        int restarts = 0;
        const Pair want = heldRender(file, 44100, 48000, to);
        const Pair got = delivered(*s, want.first.size(), 512, &restarts);
        EXPECT_EQ(restarts, 1);
        EXPECT_LT(largestDifference(got.first, want.first), 1e-6f);
        EXPECT_LT(largestDifference(got.second, want.second), 1e-6f);
    }
    // The playhead's own frames, as the file holds them, for the spectrum.
    s->stream()->seek(48000);
    delivered(*s, 1);
    const auto at = std::size_t(double(s->stream()->playhead()) * 44100.0 / 48000.0);
    const Channels frames = s->stream()->framesAtPlayhead(4096);
    ASSERT_EQ(frames.size(), 6u);
    for (std::size_t c = 0; c < 6; ++c)
        EXPECT_TRUE(std::equal(frames[c].begin(), frames[c].end(), file[c].begin() + std::ptrdiff_t(at))) << c;
}

TEST(StreamedListening, LoopsLapAfterLapAndSeeksSampleExactlyInACompressedFile) {
    test::ScratchDir dir;
    const Channels file = programme(2, 30000);
    test::writeFloatWav(dir / "loop.wav", file, 48000);
    {
        SCOPED_TRACE("loop");
        auto s = streamed(shapeOf(dir / "loop.wav", file, 48000), 48000, true);
        // Blocks that do not divide the file: the one that reaches the end stops there.
        const Pair got = delivered(*s, 3 * 30000 + 777, 1000);
        for (int lap = 0; lap < 3; ++lap)
            EXPECT_TRUE(std::equal(file[0].begin(), file[0].end(), got.first.begin() + lap * 30000)) << lap;
        EXPECT_TRUE(std::equal(got.first.end() - 777, got.first.end(), file[0].begin()));
        EXPECT_FALSE(s->atEnd());
    }
    // Compressed: decoded from the seek point before (earlier still where a frame leans on the
    // ones before it), what precedes the frame asked for dropped. FLAC frames stand alone; MP3's
    // bit reservoir and overlapping transform need the frames before.
    for (const std::string name : {"c.flac", "c.mp3"}) {
        SCOPED_TRACE(name);
        ASSERT_TRUE(test::ffmpeg("-i " + test::shellQuote((dir / "loop.wav").string()) +
                                 (name == "c.flac" ? " -sample_fmt s32 " : " ") + test::shellQuote((dir / name).string())));
        const auto whole = loadAudio((dir / name).string(), false);
        ASSERT_TRUE(whole);
        for (const std::size_t at : {std::size_t(23456), std::size_t(4000)}) {
            auto s = streamed(StreamShape{(dir / name).string(), false, 2, whole->frameCount(), 48000}, 48000);
            s->stream()->seek(std::int64_t(at));
            const Pair got = delivered(*s, whole->frameCount() - at);
            EXPECT_TRUE(std::equal(got.first.begin(), got.first.end(), whole->channels[0].begin() + std::ptrdiff_t(at))) << at;
            EXPECT_TRUE(std::equal(got.second.begin(), got.second.end(), whole->channels[1].begin() + std::ptrdiff_t(at))) << at;
        }
    }
}

TEST(StreamedListening, AVideosSoundSeeksAsItsWholeDecodeReadsIt) {
    test::ScratchDir dir;
    const Channels sound = programme(2, 96000);
    test::writeFloatWav(dir / "sound.wav", sound, 48000);
    const std::string movie = (dir / "film.mov").string();
    // A picture first in the container, the sound after it: the stream takes the sound alone.
    ASSERT_TRUE(test::ffmpeg("-f lavfi -i testsrc=size=64x48:rate=25:duration=2 -i " +
                             test::shellQuote((dir / "sound.wav").string()) +
                             " -map 0:v -map 1:a -c:v mpeg4 -c:a pcm_s24le -shortest " + test::shellQuote(movie)));
    const auto whole = loadAudio(movie, true);
    ASSERT_TRUE(whole);
    for (const std::size_t at : {std::size_t(0), std::size_t(50001)}) {
        SCOPED_TRACE(at);
        auto s = streamed(StreamShape{movie, true, 2, whole->frameCount(), 48000}, 48000);
        s->stream()->seek(std::int64_t(at));
        const Pair got = delivered(*s, whole->frameCount() - at);
        EXPECT_TRUE(std::equal(got.first.begin(), got.first.end(), whole->channels[0].begin() + std::ptrdiff_t(at)));
        EXPECT_TRUE(std::equal(got.second.begin(), got.second.end(), whole->channels[1].begin() + std::ptrdiff_t(at)));
    }
}

TEST(StreamedListening, AFileThatIsGoneOrChangedSaysSoAndStaysSilent) {
    test::ScratchDir dir;
    const Channels file = programme(2, 4800);
    test::writeFloatWav(dir / "a.wav", file, 48000);
    const auto errorOf = [](StreamShape shape) {
        ListeningStream s(std::move(shape), 48000);
        std::vector<float> l(256, 1.0f), r(256, 1.0f);
        for (int i = 0; i < 2000 && !s.error(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(s.read(256, l.data(), r.data()).frames, 0u);
        EXPECT_EQ(l, std::vector<float>(256, 0.0f));
        return s.error();
    };
    EXPECT_EQ(errorOf({(dir / "missing.wav").string(), false, 2, 4800, 48000}), LoudnessError{LoudnessError::Code::corruptFile});
    EXPECT_EQ(errorOf({(dir / "a.wav").string(), false, 6, 4800, 48000}), LoudnessError{LoudnessError::Code::sourceChanged});
    EXPECT_EQ(errorOf({(dir / "a.wav").string(), false, 2, 4800, 44100}), LoudnessError{LoudnessError::Code::sourceChanged});

    // The command line's probe: the header for PCM, a counting decode for the rest.
    const auto shape = probeStreamShape((dir / "a.wav").string(), false);
    ASSERT_TRUE(shape);
    EXPECT_EQ(shape->channels, 2u);
    EXPECT_EQ(shape->frames, 4800u);
    EXPECT_EQ(shape->sampleRate, 48000);
    EXPECT_FALSE(probeStreamShape((dir / "missing.wav").string(), false));
}

}  // namespace
}  // namespace velmora
