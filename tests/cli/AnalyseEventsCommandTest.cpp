// analyse's events, channels and timeline as a user reads them: real files, real processes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numbers>
#include <regex>
#include <sstream>

#include "support/TestSupport.h"

using namespace velmora::test;

namespace {

const std::string cli = VELMORA_CLI_PATH;
constexpr double fs = 48000;

std::vector<float> tone(double seconds, double amplitude) {
    std::vector<float> x(std::size_t(seconds * fs));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(amplitude * std::sin(2 * std::numbers::pi * 997 * double(i) / fs));
    return x;
}

void loud(std::vector<float>& x, double from, double to, double amplitude, bool clip = false) {
    for (auto i = std::size_t(from * fs); i < std::size_t(to * fs); ++i) {
        const double v = amplitude * std::sin(2 * std::numbers::pi * 997 * double(i) / fs);
        x[i] = float(clip ? std::clamp(v, -1.0, 1.0) : v);
    }
}

struct JsonEvent {
    std::string kind;
    double start, end, value;
    std::string channel;
};

std::vector<JsonEvent> events(const std::string& json) {
    std::vector<JsonEvent> out;
    const std::regex one(R"re(\{"kind":"(\w+)","start":([-0-9.e]+),"end":([-0-9.e]+),"value":([-0-9.e]+),"channel":(\w+)\})re");
    for (std::sregex_iterator it(json.begin(), json.end(), one), end; it != end; ++it)
        out.push_back({(*it)[1], std::stod((*it)[2]), std::stod((*it)[3]), std::stod((*it)[4]), (*it)[5]});
    return out;
}

std::vector<std::string> fields(const std::string& row) {
    std::vector<std::string> out(1);
    for (char c : row) {
        if (c == ',') out.emplace_back();
        else out.back() += c;
    }
    return out;
}

class AnalyseEvents : public ::testing::Test {
protected:
    ScratchDir dir;
    std::string path(const std::string& name) { return (dir / name).string(); }
};

TEST_F(AnalyseEvents, JsonListsTheOversTheClippingTheChannelsAndTheRangeEdges) {
    // -20 dBFS; R at -0.5 dBFS over 3.0–3.5 s (starting and ending on zero crossings, so
    // nothing rings over), L hard-clipped over 8.0–8.25 s.
    auto left = tone(12.0, 0.1), right = left;
    loud(right, 3.0, 3.5, std::pow(10.0, -0.5 / 20));
    loud(left, 8.0, 8.25, 2.0, true);
    writeFloatWav(dir / "overs.wav", {left, right}, int(fs));
    const auto r = runCommand(cli + " analyse --json --norm 0 " + shellQuote(path("overs.wav")));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::vector<JsonEvent> list, shortTerm;
    for (const auto& e : events(r.out)) (e.kind == "shortTermOver" ? shortTerm : list).push_back(e);
    ASSERT_EQ(list.size(), 3u) << r.out;
    EXPECT_EQ(list[0].kind, "truePeakOver");
    EXPECT_NEAR(list[0].start, 3.0, 0.01);
    EXPECT_NEAR(list[0].end, 3.5, 0.01);
    EXPECT_NEAR(list[0].value, -0.5, 0.05);
    EXPECT_EQ(list[0].channel, "1");
    EXPECT_EQ(list[1].kind, "truePeakOver");
    EXPECT_NEAR(list[1].start, 8.0, 0.01);
    EXPECT_EQ(list[2].kind, "clipping");
    EXPECT_NEAR(list[2].start, 8.0, 0.01);
    EXPECT_NEAR(list[2].end, 8.25, 0.01);
    EXPECT_EQ(list[2].channel, "0");
    // The norm's -18 LUFS short-term limit: both loud passages, with no channel.
    ASSERT_EQ(shortTerm.size(), 2u);
    EXPECT_EQ(shortTerm[0].channel, "null");
    EXPECT_NE(r.out.find(R"("channelsDetail":[{"label":"L","loudnessLUFS":)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(R"({"label":"R","loudnessLUFS":)"), std::string::npos);
    EXPECT_NE(r.out.find("\"lraLow\":-"), std::string::npos);
    EXPECT_NE(r.out.find("\"lraHigh\":-"), std::string::npos);

    // Against the French TV norm (-3 dBTP, no short-term limit) the same passages are over.
    const auto tv = runCommand(cli + " analyse --json --norm 1 " + shellQuote(path("overs.wav")));
    EXPECT_EQ(events(tv.out).size(), 3u);
}

TEST_F(AnalyseEvents, TextListsTheFirstTwentyEventsAndCountsTheRest) {
    // 25 short overs half a second apart.
    auto x = tone(14.0, 0.1);
    for (int k = 0; k < 25; ++k) loud(x, 1.0 + 0.5 * k, 1.0 + 0.5 * k + 0.05, 0.99);
    writeFloatWav(dir / "many.wav", {x}, int(fs));
    // A streaming norm: no short-term limit to add its own overs.
    const auto r = runCommand(cli + " analyse --norm 10 " + shellQuote(path("many.wav")));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("ÉVÉNEMENTS (25)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  00:00:01.00  Dépassement TP"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("  00:00:10.50  Dépassement TP"), std::string::npos);  // the 20th
    EXPECT_EQ(r.out.find("00:00:11.00"), std::string::npos);                   // the 21st is counted
    EXPECT_NE(r.out.find("… et 5 autres"), std::string::npos);
}

TEST_F(AnalyseEvents, TimelineIsTheLoudnessEveryHundredMillisecondsWithADecimalPoint) {
    // -23 LUFS in the left channel, then 2 s of silence.
    auto left = tone(6.0, 0.1);
    left.resize(std::size_t(8.0 * fs), 0.0f);
    writeFloatWav(dir / "tone.wav", {left, std::vector<float>(left.size())}, int(fs));
    const auto r = runCommand("LC_ALL=fr_FR.UTF-8 " + cli + " analyse --json --timeline " + shellQuote(path("line.csv")) +
                              " " + shellQuote(path("tone.wav")));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    std::ifstream in(path("line.csv"));
    std::vector<std::string> rows;
    for (std::string l; std::getline(in, l);) rows.push_back(l);
    ASSERT_EQ(rows.size(), 82u);  // header, then 0.0 … 8.0 s
    EXPECT_EQ(rows[0], "time,momentary,shortTerm,integrated");
    EXPECT_EQ(rows[1], "0.0,,,");
    EXPECT_EQ(rows[5].substr(0, 4), "0.4,");
    // Steady -23 LUFS once each window is full, the integrated line too.
    for (int k : {10, 31, 50}) {
        const auto f = fields(rows[std::size_t(k) + 1]);
        ASSERT_EQ(f.size(), 4u) << rows[std::size_t(k) + 1];
        EXPECT_NEAR(std::stod(f[0]), k / 10.0, 1e-9);
        EXPECT_NEAR(std::stod(f[1]), -23.0, 0.05) << rows[std::size_t(k) + 1];
        if (k >= 30) {
            EXPECT_NEAR(std::stod(f[2]), -23.0, 0.05) << rows[std::size_t(k) + 1];
        }
        EXPECT_NEAR(std::stod(f[3]), -23.0, 0.05);
    }
    // In the silence at the end the momentary window reads nothing; the integrated line ends on
    // the file's integrated loudness.
    const auto end = fields(rows.back());
    ASSERT_EQ(end.size(), 4u) << rows.back();
    EXPECT_EQ(end[0], "8.0");
    EXPECT_EQ(end[1], "");
    const auto at = r.out.find("\"integratedLUFS\":");
    ASSERT_NE(at, std::string::npos);
    EXPECT_NEAR(std::stod(end[3]), std::stod(r.out.substr(at + 17)), 0.01);
}

TEST_F(AnalyseEvents, TimelineTakesOneFileAndSaysWhyItCannotBeWritten) {
    writeFloatWav(dir / "a.wav", {tone(2.0, 0.1)}, int(fs));
    const auto two = runCommand(cli + " analyse --timeline " + shellQuote(path("t.csv")) + " " + shellQuote(path("a.wav")) +
                                " " + shellQuote(path("a.wav")));
    EXPECT_EQ(two.exitCode, 2);
    const std::string nowhere = path("missing-folder") + "/t.csv";
    const auto r = runCommand(cli + " analyse --timeline " + shellQuote(nowhere) + " " + shellQuote(path("a.wav")));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Impossible d'écrire la chronologie « " + nowhere + " »"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("No such file or directory"), std::string::npos) << r.err;
}

}  // namespace
