#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "MasteringSignals.h"
#include "mastering/Compressors.h"
#include "mastering/OnlineMasteringStreamer.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

using Pair = std::pair<std::vector<float>, std::vector<float>>;

// Renders `frames` frames in blocks of `block`.
Pair play(OnlineMasteringStreamer& s, std::size_t frames, std::size_t block = 64) {
    Pair out{std::vector<float>(frames), std::vector<float>(frames)};
    for (std::size_t at = 0; at < frames; at += block)
        s.render(std::min(block, frames - at), out.first.data() + at, out.second.data() + at);
    return out;
}

// The whole of `in` rendered in 64-frame blocks by a new streamer set to `p`.
Pair rendered(const Channels& in, const MasterParams& p, double preGainDB = 0.0) {
    OnlineMasteringStreamer s;
    s.init(in, fs48, fs48);
    s.update(p, preGainDB);
    return play(s, in[0].size());
}

// Frame i holds i / frames: a sample tells where in the file it comes from.
std::vector<float> ramp(std::size_t frames) {
    std::vector<float> out(frames);
    for (std::size_t i = 0; i < frames; ++i) out[i] = float(i) / float(frames);
    return out;
}

// Every band of both equalisers counts: five before the compressor, three after.
MasterParams everyBand() {
    MasterParams p;
    p.eqOn = p.hpfOn = true;
    p.hpfFreq = 60, p.lsGain = 3, p.b1Gain = -4, p.b2Gain = 5, p.b2Q = 2, p.hsGain = -2;
    p.tLsGain = 2, p.tMidGain = 3, p.tHsGain = 4;
    return p;
}

MasterParams compressorToo() {
    MasterParams p = everyBand();
    p.compOn = true;
    p.compThreshold = -24, p.compRatio = 4, p.compAttack = 5, p.compRelease = 100, p.compMakeup = 3;
    return p;
}

float largestDifference(const std::vector<float>& a, const std::vector<float>& b, std::size_t from = 0) {
    float worst = 0;
    for (std::size_t i = from; i < std::min(a.size(), b.size()); ++i) worst = std::max(worst, std::fabs(a[i] - b[i]));
    return worst;
}

}  // namespace

TEST(LiveStreamerFold, OneFiveSixAndTwelveChannels) {
    const std::size_t n = 1000;
    Channels ch;
    for (std::uint64_t c = 0; c < 12; ++c) ch.push_back(noise(n, 0.5, 100 + c));
    constexpr float k = 0.707f;
    auto folded = [&](std::size_t count) {
        OnlineMasteringStreamer s;
        EXPECT_FALSE(s.init(Channels(ch.begin(), ch.begin() + long(count)), fs48, fs48));
        EXPECT_EQ(s.totalFrames(), std::int64_t(n));
        return play(s, n, n);
    };
    const auto mono = folded(1);
    EXPECT_EQ(mono.first, ch[0]);
    EXPECT_EQ(mono.second, ch[0]);

    const auto five = folded(5), six = folded(6), twelve = folded(12);
    for (std::size_t i = 0; i < n; ++i) {
        // The fifth channel on the left only; LFE (ch3) and everything after ch5 nowhere.
        ASSERT_NEAR(five.first[i], ch[0][i] + k * ch[2][i] + k * ch[4][i], 1e-6f) << i;
        ASSERT_NEAR(five.second[i], ch[1][i] + k * ch[2][i], 1e-6f) << i;
        ASSERT_NEAR(six.first[i], ch[0][i] + k * ch[2][i] + k * ch[4][i], 1e-6f) << i;
        ASSERT_NEAR(six.second[i], ch[1][i] + k * ch[2][i] + k * ch[5][i], 1e-6f) << i;
    }
    EXPECT_EQ(twelve, six);

    OnlineMasteringStreamer empty;
    EXPECT_FALSE(empty.init({}, fs48, 44100));
    EXPECT_EQ(empty.totalFrames(), 0);
    const auto silence = play(empty, 200);
    EXPECT_EQ(silence.first, std::vector<float>(200, 0.0f));
    EXPECT_EQ(empty.position(), 0.0);
}

TEST(LiveStreamerPlayhead, SeeksClampAndTheEndCountsAsTheStart) {
    const std::size_t n = 1000;
    const auto r = ramp(n);
    OnlineMasteringStreamer s;
    s.init({r}, fs48, fs48);
    auto firstOfNextBlock = [&] {
        float l[64], rr[64];
        s.render(64, l, rr);
        return l[0];
    };
    s.seek(0.5);
    EXPECT_EQ(s.position(), 0.0);  // taken by the next block, not before
    EXPECT_EQ(firstOfNextBlock(), r[500]);
    EXPECT_DOUBLE_EQ(s.position(), 564.0 / 1000.0);
    s.seek(-0.5);
    EXPECT_EQ(firstOfNextBlock(), r[0]);
    s.seek(0.4567);  // truncated, not rounded
    EXPECT_EQ(firstOfNextBlock(), r[456]);
    s.seek(2.0);
    EXPECT_EQ(firstOfNextBlock(), r[0]);
    EXPECT_DOUBLE_EQ(s.position(), 64.0 / 1000.0);
    s.seek(std::nan(""));
    EXPECT_EQ(firstOfNextBlock(), r[0]);
}

TEST(LiveStreamerPlayhead, LoopEndsInZerosThatTheMeterNeverSees) {
    const std::size_t n = 100;
    const auto tone = sine(n, 1000, 0.9);
    OnlineMasteringStreamer s;
    s.init({tone, tone}, fs48, fs48);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(fs48);
    s.setLiveMeter(meter);
    const auto out = play(s, 192);  // 0…63, then 64…99 and 28 zeros, then 0…63 again
    for (std::size_t i = 0; i < 100; ++i) ASSERT_EQ(out.first[i], tone[i]);
    for (std::size_t i = 100; i < 128; ++i) ASSERT_EQ(out.first[i], 0.0f);
    for (std::size_t i = 128; i < 192; ++i) ASSERT_EQ(out.first[i], tone[i - 128]);
    EXPECT_DOUBLE_EQ(s.position(), 0.64);

    // The same real frames in the same blocks, given straight to a meter: the same readings,
    // which the 28 zeros would have lowered (integrated) and stretched in time (momentary).
    LiveMeter reference;
    reference.init(fs48);
    reference.process(tone.data(), tone.data(), 64);
    reference.process(tone.data() + 64, tone.data() + 64, 36);
    reference.process(tone.data(), tone.data(), 64);
    const auto got = meter->stats(), want = reference.stats();
    EXPECT_EQ(got.momentary, want.momentary);
    EXPECT_EQ(got.shortTerm, want.shortTerm);
    EXPECT_EQ(got.integrated, want.integrated);
    EXPECT_EQ(got.peakDB, want.peakDB);
}

TEST(LiveStreamerPlayhead, PlayedOnceItStopsAtTheEndUntilASeek) {
    const std::size_t n = 100;
    const auto tone = sine(n, 1000, 0.9);
    OnlineMasteringStreamer s;
    s.init({tone, tone}, fs48, fs48);
    s.setLooping(false);
    const auto out = play(s, 256);  // 0…99, then silence: no second pass
    for (std::size_t i = 0; i < 100; ++i) ASSERT_EQ(out.first[i], tone[i]);
    for (std::size_t i = 100; i < 256; ++i) ASSERT_EQ(out.first[i], 0.0f) << i;
    EXPECT_TRUE(s.atEnd());
    EXPECT_DOUBLE_EQ(s.position(), 1.0);
    s.seek(0.5);
    EXPECT_FALSE(s.atEnd()) << "a pending seek is not the end";
    const auto again = play(s, 32);
    EXPECT_EQ(again.first[0], tone[50]);
    EXPECT_FALSE(s.atEnd());
}

TEST(LiveStreamerMeter, FullScaleSineSettlesAtZeroLUFS) {
    const auto tone = sine(48000, 1000, 1.0);
    OnlineMasteringStreamer s;
    s.init({tone, tone}, fs48, fs48);
    s.update(MasterParams{}, 0.0);
    auto meter = std::make_shared<LiveMeter>();
    meter->init(fs48);
    s.setLiveMeter(meter);
    play(s, 30 * 48000);  // thirty times round the loop, ten short-term time constants
    const auto m = meter->stats();
    EXPECT_NEAR(m.momentary, 0.0, 0.05);
    EXPECT_NEAR(m.shortTerm, 0.0, 0.05);
    EXPECT_NEAR(m.peakDB, 0.0, 1e-6);
}

TEST(LiveStreamerChain, EqualiserMatchesTheOfflineCascade) {
    const std::size_t n = 20000;
    const Channels in = stereoNoise(n, 0.5);
    const MasterParams p = everyBand();
    const auto out = rendered(in, p);
    const LiveCascade cascade = buildLiveCascade(p, fs48);
    ASSERT_EQ(cascade.sections.size(), 8u);
    Channels want = in;
    for (auto& c : want) applyBiquads(cascade.sections.data(), cascade.sections.size(), c.data(), n);
    EXPECT_LT(largestDifference(out.first, want[0]), 1e-5f);
    EXPECT_LT(largestDifference(out.second, want[1]), 1e-5f);
    EXPECT_GT(largestDifference(out.first, in[0]), 0.05f);  // the equaliser did something
}

TEST(LiveStreamerChain, CompressorRunsBetweenTheBandsLikeTheOfflineOne) {
    // Pre-gain, the five bands, the bus compressor, then the tonal bands.
    const std::size_t n = 48000;
    const Channels in = stereoNoise(n, 0.5);
    const MasterParams p = compressorToo();
    const auto out = rendered(in, p, -3.0);
    const LiveCascade cascade = buildLiveCascade(p, fs48);
    Channels want = in;
    const float gain = float(std::pow(10.0, -3.0 / 20));
    for (auto& c : want) {
        for (auto& v : c) v *= gain;
        applyBiquads(cascade.sections.data(), cascade.preCompressor, c.data(), n);
    }
    EXPECT_GT(busCompress(want, fs48, p), 3.0);
    for (auto& c : want)
        applyBiquads(cascade.sections.data() + cascade.preCompressor,
                     cascade.sections.size() - cascade.preCompressor, c.data(), n);
    EXPECT_LT(largestDifference(out.first, want[0]), 1e-4f);
    EXPECT_LT(largestDifference(out.second, want[1]), 1e-4f);
}

TEST(LiveStreamerChain, EqualiserSwitchOffRunsNoFilterButTheCompressor) {
    const std::size_t n = 9600;
    const Channels in = stereoNoise(n, 0.5);
    MasterParams bandsOff = compressorToo();
    bandsOff.eqOn = false;
    MasterParams noBands;  // compressor alone
    noBands.compOn = true;
    noBands.compThreshold = bandsOff.compThreshold, noBands.compRatio = bandsOff.compRatio;
    noBands.compAttack = bandsOff.compAttack, noBands.compRelease = bandsOff.compRelease;
    noBands.compMakeup = bandsOff.compMakeup;
    const auto off = rendered(in, bandsOff);
    EXPECT_EQ(off, rendered(in, noBands));
    EXPECT_GT(largestDifference(off.first, in[0]), 0.05f);  // compressed
    bandsOff.compOn = false;
    EXPECT_EQ(rendered(in, bandsOff), (Pair{in[0], in[1]}));
}

TEST(LiveStreamerChain, ParameterChangeKeepsTheFilterMemories) {
    // A 100 Hz tone through every band; half way the bass shelf moves by 0.001 dB. Kept memories
    // make that change inaudible; memories reset there (as a seek to the same place does) jump.
    const std::size_t n = 9600, half = 4800;
    const auto tone = sine(n, 100, 0.5);
    MasterParams p = everyBand();
    OnlineMasteringStreamer steady, changed, reset;
    for (auto* s : {&steady, &changed, &reset}) {
        s->init({tone}, fs48, fs48);
        s->update(p, 0.0);
    }
    const auto a = play(steady, n);
    auto joined = [&](OnlineMasteringStreamer& s, auto&& between) {
        auto out = play(s, half).first;
        between(s);
        const auto rest = play(s, n - half).first;
        out.insert(out.end(), rest.begin(), rest.end());
        return out;
    };
    p.lsGain += 0.001;
    const auto b = joined(changed, [&](OnlineMasteringStreamer& s) { s.update(p, 0.0); });
    EXPECT_LT(largestDifference(a.first, b), 1e-4f);
    EXPECT_GT(largestDifference(a.first, b, half), 0.0f);  // the change was heard
    const auto c = joined(reset, [&](OnlineMasteringStreamer& s) { s.seek(double(half) / double(n)); });
    EXPECT_GT(largestDifference(a.first, c, half), 0.05f);
}

TEST(LiveStreamerChain, SeekResetsMemoriesAndEnvelope) {
    // After a seek to the start, the block is what a fresh streamer renders first: filters from
    // rest, and the compressor opened fully (−120 dB) then attacking.
    const std::size_t n = 48000;
    const Channels in = stereoNoise(n, 0.8);
    const MasterParams p = compressorToo();
    OnlineMasteringStreamer fresh, playing;
    for (auto* s : {&fresh, &playing}) {
        s->init(in, fs48, fs48);
        s->update(p, 0.0);
    }
    const auto first = play(fresh, 256);
    play(playing, 30000);
    playing.seek(0.0);
    EXPECT_EQ(play(playing, 256), first);
    // Without the seek, the loop back to frame 0 keeps them: the same samples render otherwise.
    play(playing, n - 256);
    EXPECT_GT(largestDifference(play(playing, 256).first, first.first), 1e-3f);
}

TEST(LiveStreamerRate, FileAtAnotherRatePlaysAtTheDevicesRate) {
    // 2 s of 1 kHz at 48 kHz, played at 44.1 kHz: 88,200 frames, and still 1 kHz.
    const auto tone = sine(96000, 1000, 0.5);
    OnlineMasteringStreamer s;
    EXPECT_FALSE(s.init({tone, tone}, 48000, 44100));
    EXPECT_EQ(s.totalFrames(), 88200);
    EXPECT_EQ(s.renderRate(), 44100.0);
    const auto out = play(s, 88200, 512);
    // Upward zero crossings over the middle second, where the converter's edges are far.
    std::size_t crossings = 0;
    double first = 0, last = 0;
    for (std::size_t i = 22050; i < 66150; ++i)
        if (out.first[i - 1] < 0 && out.first[i] >= 0) {
            const double at = double(i - 1) + out.first[i - 1] / (out.first[i - 1] - out.first[i]);
            if (!crossings) first = at;
            last = at;
            ++crossings;
        }
    ASSERT_GT(crossings, 900u);
    EXPECT_NEAR(double(crossings - 1) * 44100 / (last - first), 1000.0, 0.01);
    float peak = 0;
    for (std::size_t i = 22050; i < 66150; ++i) peak = std::max(peak, std::fabs(out.second[i]));
    EXPECT_NEAR(peak, 0.5f, 0.002f);
    // The filters are designed for the rate they run at: a 1 kHz bell boosts 1 kHz.
    MasterParams p;
    p.eqOn = true;
    p.b1Freq = 1000, p.b1Gain = 6;
    s.update(p, 0.0);
    s.seek(0.5);
    const auto boosted = play(s, 22050, 512);
    peak = 0;
    for (std::size_t i = 11025; i < 22050; ++i) peak = std::max(peak, std::fabs(boosted.first[i]));
    EXPECT_NEAR(peak, 0.5f * std::pow(10.0f, 6.0f / 20), 0.005f);

    // A rate no converter takes: said, and nothing to play rather than the wrong speed.
    const auto refused = s.init({tone, tone}, 48000, 0);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->code, LoudnessError::Code::rateConversion);
    EXPECT_EQ(s.totalFrames(), 0);
}
