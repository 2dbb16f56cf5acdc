// Where a programme goes over, clips and how loud it is at each instant: signals built with
// their events at known places, measured through the streaming analyser as a decoded file is.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "measurement/EventDetector.h"
#include "measurement/StreamingMeter.h"
#include "measurement/Signals.h"

using namespace velmora;
using namespace velmora::signals;

namespace {

struct Measured {
    LoudnessResult result;
    ProgrammeDetail detail;
};

Measured measureAll(const Channels& channels, const std::vector<double>& weights, double fs = fs48) {
    Measured m;
    m.result = LoudnessEngine::measure(channels, weights, fs, {}, &m.detail);
    return m;
}

// Replaces [from, to) seconds of `x` with a 997 Hz sine of the given peak level.
void burst(std::vector<float>& x, double from, double to, double dbfs, double fs = fs48) {
    const double a = dbToAmplitude(dbfs);
    for (std::size_t n = framesFor(from, fs); n < framesFor(to, fs); ++n) x[n] = float(a * sineSample(997, fs, n));
}

// The same sine at twice full scale, cut flat at ±1: a hard-clipped passage.
void clipped(std::vector<float>& x, double from, double to, double fs = fs48) {
    for (std::size_t n = framesFor(from, fs); n < framesFor(to, fs); ++n)
        x[n] = float(std::clamp(2.0 * sineSample(997, fs, n), -1.0, 1.0));
}

std::vector<LoudnessEvent> ofKind(const EventList& list, EventKind kind) {
    std::vector<LoudnessEvent> out;
    for (const auto& e : list.events)
        if (e.kind == kind) out.push_back(e);
    return out;
}

double loudnessOfBlock(const BlockEnergies& blocks, const std::vector<double>& w, std::size_t j) {
    double sum = 0.0;
    for (std::size_t c = 0; c < blocks.size(); ++c) sum += w[c] * blocks[c][j];
    return sum > 0 ? LoudnessEngine::loudnessOffset + 10.0 * std::log10(sum) : minusInf;
}

// 20 s at -20 dBFS; right channel goes to -0.5 dBFS at 5.0–5.5 s, left to -0.3 dBFS at
// 12.0–12.2 s, and the left is hard-clipped at 15.0–15.3 s.
Channels programmeWithOvers() {
    auto left = sine(997, -20.0, framesFor(20.0, fs48), fs48);
    auto right = left;
    burst(right, 5.0, 5.5, -0.5);
    burst(left, 12.0, 12.2, -0.3);
    clipped(left, 15.0, 15.3);
    return {left, right};
}

TEST(LoudnessEvents, TruePeakOversAndClippingAreFoundWhereTheyArePlaced) {
    const auto m = measureAll(programmeWithOvers(), stereo);
    const auto events = detectEvents(m.detail, {-1.0, std::nullopt, std::nullopt});
    const auto overs = ofKind(events, EventKind::truePeakOver);
    ASSERT_EQ(overs.size(), 3u);
    const double starts[] = {5.0, 12.0, 15.0}, ends[] = {5.5, 12.2, 15.3};
    const int channels[] = {1, 0, 0};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(overs[i].startSeconds, starts[i], 0.01) << i;
        EXPECT_NEAR(overs[i].endSeconds, ends[i], 0.01) << i;
        EXPECT_EQ(overs[i].channel, channels[i]) << i;
    }
    EXPECT_NEAR(overs[0].valueDB, -0.5, 0.05);
    EXPECT_NEAR(overs[1].valueDB, -0.3, 0.05);
    EXPECT_GT(overs[2].valueDB, 0.0);
    // The overall maximum is the largest event, as the single figure says.
    EXPECT_NEAR(overs[2].valueDB, m.result.truePeakDB, 1e-9);

    const auto clips = ofKind(events, EventKind::clipping);
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NEAR(clips[0].startSeconds, 15.0, 0.01);
    EXPECT_NEAR(clips[0].endSeconds, 15.3, 0.01);
    EXPECT_EQ(clips[0].channel, 0);
    EXPECT_NEAR(clips[0].valueDB, 0.0, 1e-6);
    EXPECT_TRUE(std::is_sorted(events.events.begin(), events.events.end(),
                               [](const auto& a, const auto& b) { return a.startSeconds < b.startSeconds; }));
    EXPECT_EQ(events.notListed, 0u);
}

TEST(LoudnessEvents, TheCeilingChoosesTheOversWithoutMeasuringAgain) {
    const auto m = measureAll(programmeWithOvers(), stereo);
    // A ceiling of 0 dBTP leaves only the clipped passage.
    EXPECT_EQ(ofKind(detectEvents(m.detail, {0.0, {}, {}}), EventKind::truePeakOver).size(), 1u);
    // A hand-set -0.4 dBTP lies between kept levels: the -0.5 dBTP burst is under it.
    const auto between = ofKind(detectEvents(m.detail, {-0.4, {}, {}}), EventKind::truePeakOver);
    ASSERT_EQ(between.size(), 2u);
    EXPECT_NEAR(between[0].startSeconds, 12.0, 0.01);
    // At -3 dBTP (the French TV ceiling) the same three passages, no more.
    const auto low = ofKind(detectEvents(m.detail, {-3.0, {}, {}}), EventKind::truePeakOver);
    ASSERT_EQ(low.size(), 3u);
    EXPECT_NEAR(low[0].startSeconds, 5.0, 0.01);
}

TEST(LoudnessEvents, DialogueGatingKeepsTheSameDetail) {
    const auto channels = programmeWithOvers();
    const auto standard = measureAll(channels, stereo);
    ProgrammeDetail dialogue;
    LoudnessEngine::measureDialogue(channels, stereo, fs48, {}, &dialogue);
    EXPECT_EQ(dialogue.history.shortTerm, standard.detail.history.shortTerm);
    const auto a = detectEvents(dialogue, {-1.0, {}, {}}), b = detectEvents(standard.detail, {-1.0, {}, {}});
    ASSERT_EQ(a.events.size(), b.events.size());
    for (std::size_t i = 0; i < a.events.size(); ++i) EXPECT_EQ(a.events[i].startSeconds, b.events[i].startSeconds);
}

TEST(LoudnessEvents, ClippingNeedsThreeSamplesInARowAtFullScale) {
    auto x = sine(997, -20.0, framesFor(4.0, fs48), fs48);
    const std::size_t two = framesFor(1.0, fs48), three = framesFor(2.5, fs48);
    x[two] = x[two + 1] = 1.0f;
    x[three] = x[three + 1] = -0.9995f;
    x[three + 2] = 1.0f;
    const auto m = measureAll({x}, mono);
    const auto clips = ofKind(detectEvents(m.detail, {0.0, {}, {}}), EventKind::clipping);
    ASSERT_EQ(clips.size(), 1u);
    EXPECT_NEAR(clips[0].startSeconds, 2.5, 1e-4);
    EXPECT_NEAR(clips[0].endSeconds, 2.5 + 3.0 / fs48, 1e-6);
}

TEST(LoudnessEvents, LoudnessOversFollowTheWindowsThatEndInTheLoudPassage) {
    // -23 LUFS with a 6 s passage at -13 LUFS from 20 s.
    auto x = sine(997, -20.0, framesFor(40.0, fs48), fs48);
    burst(x, 20.0, 26.0, -10.0);
    const auto m = measureAll({x}, mono);
    const auto events = detectEvents(m.detail, {-1.0, -18.0, -15.0});
    const auto shortTerm = ofKind(events, EventKind::shortTermOver);
    ASSERT_EQ(shortTerm.size(), 1u);
    // A 3 s window reads over -18 once 0.72 s of it is in the passage, until 0.72 s is left.
    EXPECT_NEAR(shortTerm[0].startSeconds, 20.75, 0.06);
    EXPECT_NEAR(shortTerm[0].endSeconds, 28.25, 0.06);
    EXPECT_NEAR(shortTerm[0].valueDB, -13.0, 0.05);
    EXPECT_FALSE(shortTerm[0].channel);
    // A 400 ms window over -15 once 0.236 s of it is in the passage.
    const auto momentary = ofKind(events, EventKind::momentaryOver);
    ASSERT_EQ(momentary.size(), 1u);
    EXPECT_NEAR(momentary[0].startSeconds, 20.3, 0.06);
    EXPECT_NEAR(momentary[0].endSeconds, 26.1, 0.06);
    // Without a momentary limit there is no momentary over; without a short-term one, none either.
    EXPECT_TRUE(ofKind(detectEvents(m.detail, {-1.0, {}, {}}), EventKind::momentaryOver).empty());
    EXPECT_TRUE(ofKind(detectEvents(m.detail, {-1.0, {}, {}}), EventKind::shortTermOver).empty());
}

TEST(LoudnessHistorySeries, ReadingsAreTheMeasurementsOwnBlocksAtTheSameInstants) {
    PinkishNoise noise(7, fs48);
    std::vector<float> x(framesFor(30.0, fs48)), y(x.size());
    for (std::size_t n = 0; n < x.size(); ++n) {
        // The level swells and falls so that no two blocks read alike.
        const double swell = 0.2 + 0.8 * std::fabs(std::sin(double(n) / fs48 * 0.4));
        x[n] = float(swell * noise.next());
        y[n] = float(0.5 * x[n]);
    }
    const Channels channels{x, y};
    LoudnessAnalyzer analyzer;
    analyzer.prepare(2, fs48, x.size());
    analyzer.feed({x.data(), y.data()}, x.size());
    analyzer.wait();
    const auto detail = analyzer.detail(stereo);
    const auto& h = detail.history;
    const auto momentary = analyzer.momentaryBlocks(), shortTerm = analyzer.shortTermBlocks();
    ASSERT_EQ(h.size(), 301u);  // 0 … 30 s every 100 ms
    EXPECT_EQ(h.momentary[3], -INFINITY);
    EXPECT_EQ(h.shortTerm[29], -INFINITY);
    for (std::size_t k = 4; k < h.size(); ++k) {
        // The window that ends at k · 100 ms starts at frame (k − 4) · 4800.
        EXPECT_NEAR(h.momentary[k], loudnessOfBlock(momentary, stereo, k - 4), 1e-3) << k;
        if (k >= 30) {
            EXPECT_NEAR(h.shortTerm[k], loudnessOfBlock(shortTerm, stereo, k - 30), 1e-3) << k;
        }
    }
    // The running integrated loudness ends on the programme's.
    EXPECT_NEAR(h.integrated.back(), analyzer.result(stereo).integratedLUFS, 0.01);
    // Half-way it is the integrated loudness of the first half alone.
    BlockEnergies firstHalf(2);
    for (std::size_t c = 0; c < 2; ++c) firstHalf[c].assign(momentary[c].begin(), momentary[c].begin() + (150 - 4 + 1));
    EXPECT_NEAR(h.integrated[150], LoudnessEngine::integratedLoudness(firstHalf, stereo), 0.01);
}

TEST(LoudnessHistorySeries, LoudnessRangeEdgesAreItsPercentiles) {
    // 30 s at -33 LUFS then 30 s at -23 LUFS: the range lies between the two levels.
    const auto x = toneSequence(997, {{-30.0, 30.0}, {-20.0, 30.0}}, fs48);
    const auto m = measureAll({x}, mono);
    ASSERT_TRUE(m.result.loudnessRange && m.result.loudnessRangeLow && m.result.loudnessRangeHigh);
    EXPECT_NEAR(*m.result.loudnessRangeLow, -33.0, 0.05);
    EXPECT_NEAR(*m.result.loudnessRangeHigh, -23.0, 0.05);
    EXPECT_DOUBLE_EQ(*m.result.loudnessRangeHigh - *m.result.loudnessRangeLow, *m.result.loudnessRange);
}

TEST(LoudnessHistorySeries, ChannelsHaveTheirOwnContributionAndTruePeak) {
    // 5.1: L at -20 dBFS, C at -26, LFE at -6, Ls at -20 (weighted 1.41), the rest silent.
    const std::size_t n = framesFor(10.0, fs48);
    Channels ch(6, silence(n));
    ch[0] = sine(997, -20.0, n, fs48);
    ch[2] = sine(997, -26.0, n, fs48);
    ch[3] = sine(60, -6.0, n, fs48);
    ch[4] = sine(997, -20.0, n, fs48);
    const std::vector<double> w{1, 1, 1, 0, 1.41, 1.41};
    const auto m = measureAll(ch, w);
    ASSERT_EQ(m.detail.channels.size(), 6u);
    EXPECT_NEAR(m.detail.channels[0].loudnessLUFS, toneLoudness997(-20.0), 0.01);
    EXPECT_NEAR(m.detail.channels[2].loudnessLUFS, toneLoudness997(-26.0), 0.01);
    EXPECT_EQ(m.detail.channels[3].loudnessLUFS, -INFINITY);  // the LFE does not count
    EXPECT_NEAR(m.detail.channels[4].loudnessLUFS, toneLoudness997(-20.0, 1.41), 0.01);
    EXPECT_EQ(m.detail.channels[1].loudnessLUFS, -INFINITY);
    EXPECT_NEAR(m.detail.channels[3].truePeakDB, -6.0, 0.05);
    EXPECT_NEAR(m.detail.channels[2].truePeakDB, -26.0, 0.05);
    EXPECT_LE(m.detail.channels[1].truePeakDB, -200.0);
    // The contributions add up to the programme.
    double sum = 0.0;
    for (const auto& c : m.detail.channels)
        if (std::isfinite(c.loudnessLUFS)) sum += std::pow(10.0, (c.loudnessLUFS - LoudnessEngine::loudnessOffset) / 10.0);
    EXPECT_NEAR(LoudnessEngine::loudnessOffset + 10.0 * std::log10(sum), m.result.integratedLUFS, 0.01);
}

TEST(LoudnessEvents, RunListsKeepAFewThousandAndCountTheRest) {
    RunList list(4800, 2, 0);
    for (std::size_t k = 0; k < 5; ++k) list.mark(k * 48000, k * 48000 + 10, 1.0);
    list.mark(4 * 48000 + 4000, 4 * 48000 + 4010, 2.0);  // closer than the gap: one run
    const auto runs = list.runs();
    ASSERT_EQ(runs.size(), 3u);  // two closed, and the open one
    EXPECT_EQ(list.dropped(), 2u);
    EXPECT_EQ(runs.back().endFrame, 4u * 48000 + 4010);
    EXPECT_EQ(runs.back().peakLin, 2.0);
}

TEST(LoudnessEvents, TimecodesAndLinesReadAsAnEngineerWritesThem) {
    EXPECT_EQ(timecode(0.0), "00:00:00.00");
    EXPECT_EQ(timecode(3725.678), "01:02:05.67");
    EXPECT_EQ(timecode(12.3), "00:00:12.30");
    const LoudnessEvent over{EventKind::truePeakOver, 72.4, 72.9, 0.44, 1};
    EXPECT_EQ(eventLine(over, {"L", "R"}), "00:01:12.40  Dépassement TP    +0.4 dBTP  R");
    const LoudnessEvent st{EventKind::shortTermOver, 1.0, 2.0, -16.26, std::nullopt};
    EXPECT_EQ(eventLine(st, {}, true), "00:00:01.00  Short-term over  -16.3 LUFS");
}

}  // namespace
