#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "MasteringSignals.h"
#include "mastering/LiveMeter.h"
#include "mastering/TripleBuffer.h"

using namespace velmora;
using namespace velmora::testsig;

namespace {

constexpr double minusInf = -HUGE_VAL;

// Feeds the pair in blocks of `block` frames.
void feed(LiveMeter& meter, const std::vector<float>& l, const std::vector<float>& r, std::size_t block) {
    for (std::size_t at = 0; at < l.size(); at += block)
        meter.process(l.data() + at, r.data() + at, std::min(block, l.size() - at));
}

}  // namespace

TEST(LiveMeter, NothingOrSilenceReadsMinusInfinity) {
    LiveMeter meter;
    meter.init(fs48);
    auto s = meter.stats();
    EXPECT_EQ(s.momentary, minusInf);
    EXPECT_EQ(s.shortTerm, minusInf);
    EXPECT_EQ(s.integrated, minusInf);
    EXPECT_EQ(s.peakDB, minusInf);
    const std::vector<float> zeros(48000, 0.0f);
    feed(meter, zeros, zeros, 512);
    s = meter.stats();
    EXPECT_EQ(s.momentary, minusInf);
    EXPECT_EQ(s.shortTerm, minusInf);
    EXPECT_EQ(s.integrated, minusInf);
    EXPECT_EQ(s.peakDB, minusInf);
}

TEST(LiveMeter, FullScaleSineReadsZeroLUFSAndEachChannelAloneMinus3) {
    // 1 kHz through the K-weighting: +0.691 dB of filter gain, which the −0.691 offset takes back.
    // 30 s: ten times the short-term time constant.
    const auto tone = sine(30 * 48000, 1000, 1.0);
    const std::vector<float> silence(tone.size(), 0.0f);
    for (std::size_t block : {64u, 256u, 4800u}) {
        LiveMeter both, leftOnly;
        both.init(fs48);
        leftOnly.init(fs48);
        feed(both, tone, tone, block);
        feed(leftOnly, tone, silence, block);
        const auto s = both.stats();
        EXPECT_NEAR(s.momentary, 0.0, 0.05) << block;
        EXPECT_NEAR(s.shortTerm, 0.0, 0.05) << block;
        EXPECT_NEAR(s.integrated, 0.0, 0.05) << block;
        EXPECT_NEAR(s.peakDB, 0.0, 1e-6) << block;
        EXPECT_NEAR(leftOnly.stats().momentary, -3.01, 0.05) << block;
    }
}

TEST(LiveMeter, AveragesFollowBlockDurationNotBlockCount) {
    // From silence, a steady tone brings the momentary mean square to 1 − (1 − dt/0.4)^k of its
    // value after k blocks of dt seconds: the same 0.2 s reads the same with 64- or 960-frame
    // blocks, to within what the per-block rule itself differs by.
    const auto tone = sine(9600, 1000, 1.0);
    double read[2];
    int i = 0;
    for (std::size_t block : {64u, 960u}) {
        LiveMeter meter;
        meter.init(fs48);
        feed(meter, tone, tone, block);
        read[i++] = meter.stats().momentary;
    }
    const double exact = 10 * std::log10(1 - std::exp(-0.2 / 0.4));  // continuous-time value
    EXPECT_NEAR(read[0], exact, 0.1);
    EXPECT_NEAR(read[1], exact, 0.25);
    EXPECT_LT(read[0], -3.0);  // far from settled: neither block size replaces the value outright

    // A block longer than 0.4 s replaces the momentary value; the short-term one is still rising.
    LiveMeter meter;
    meter.init(fs48);
    const auto half = sine(24000, 1000, 1.0);
    meter.process(half.data(), half.data(), half.size());
    EXPECT_NEAR(meter.stats().momentary, 0.0, 0.05);
    EXPECT_NEAR(meter.stats().shortTerm, 10 * std::log10(0.5 / 3.0), 0.05);
}

TEST(LiveMeter, IntegratedIsUngatedAndPeakHolds) {
    LiveMeter meter;
    meter.init(fs48);
    const auto loud = sine(48000, 1000, 1.0);
    const auto quiet = sine(3 * 48000, 1000, 1e-3);
    feed(meter, loud, loud, 512);
    feed(meter, quiet, quiet, 512);
    // One loud second among four: a gated measurement would leave the quiet ones out.
    const auto s = meter.stats();
    EXPECT_NEAR(s.integrated, 10 * std::log10(0.25), 0.05);
    EXPECT_NEAR(s.peakDB, 0.0, 1e-6);
    // The averages have let go of the loud second, the 3 s one more slowly. Momentary: the loud
    // second brought it to 1 − e^(−1/0.4) of full scale, three quiet seconds left e^(−3/0.4) of
    // that (continuous time; steps of 512 frames decay a little faster).
    EXPECT_NEAR(s.momentary, 10 * std::log10((1 - std::exp(-1 / 0.4)) * std::exp(-3 / 0.4)), 0.5);
    EXPECT_GT(s.shortTerm, s.momentary + 20);
    // A block of no frames changes nothing.
    meter.process(nullptr, nullptr, 0);
    const auto t = meter.stats();
    EXPECT_EQ(t.momentary, s.momentary);
    EXPECT_EQ(t.integrated, s.integrated);
}

TEST(TripleBuffer, ReaderAlwaysSeesOneWholeRecordAndNeverGoesBack) {
    struct Record {
        std::uint64_t v[16];
    };
    TripleBuffer<Record> shared;
    constexpr std::uint64_t last = 200000;
    std::thread writer([&] {
        for (std::uint64_t n = 1; n <= last; ++n) {
            Record& r = shared.back();
            for (auto& x : r.v) x = n;
            shared.publish();
        }
    });
    std::uint64_t seen = 0, torn = 0, backwards = 0;
    while (seen != last) {  // the last record published is always read in the end
        const Record& r = shared.read();
        for (auto x : r.v) torn += x != r.v[0];
        backwards += r.v[0] < seen;
        seen = r.v[0];
    }
    writer.join();
    EXPECT_EQ(torn, 0u);
    EXPECT_EQ(backwards, 0u);
    EXPECT_EQ(shared.read().v[0], last);
}
