// velmora-cli as a user runs it: real files on disk, real processes, real exit codes.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>

#include "support/TestSupport.h"

using namespace velmora::test;

namespace {

const std::string cli = VELMORA_CLI_PATH;

std::vector<float> sine(double hz, double amplitude, double seconds, double fs) {
    std::vector<float> x(std::size_t(seconds * fs));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(amplitude * std::sin(2 * std::numbers::pi * hz * double(i) / fs));
    return x;
}

// The number after "key": in a one-line JSON object; NaN when the value is null or missing.
double jsonNumber(const std::string& json, const std::string& key) {
    const auto at = json.find("\"" + key + "\":");
    if (at == std::string::npos) return NAN;
    const char* p = json.c_str() + at + key.size() + 3;
    if (std::string_view(p, 4) == "null") return NAN;
    return std::strtod(p, nullptr);
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

class AnalyseCommand : public ::testing::Test {
protected:
    ScratchDir dir;
    std::string path(const std::string& name) { return (dir / name).string(); }
    // 997 Hz at -20 dBFS in the left channel: -23.0 LUFS.
    std::string referenceTone(const std::string& name, double seconds = 12.0) {
        writeFloatWav(dir / name, {sine(997, 0.1, seconds, 48000), std::vector<float>(std::size_t(seconds * 48000))}, 48000);
        return path(name);
    }
};

TEST_F(AnalyseCommand, JsonReportsTheMeasurementNormsAndPadCheck) {
    const auto file = referenceTone("tone.wav");
    const auto r = runCommand(cli + " analyse --json " + shellQuote(file));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const auto out = lines(r.out);
    ASSERT_EQ(out.size(), 1u);
    const auto& j = out[0];
    EXPECT_NE(j.find("\"status\":\"Prêt\""), std::string::npos);
    EXPECT_NE(j.find("\"info\":\"0:12 · stéréo · 48.0 kHz\""), std::string::npos);
    EXPECT_NEAR(jsonNumber(j, "integratedLUFS"), -23.0, 0.05);
    EXPECT_NEAR(jsonNumber(j, "truePeakDB"), -20.0, 0.05);
    EXPECT_NEAR(jsonNumber(j, "loudnessRange"), 0.0, 0.05);
    EXPECT_NEAR(jsonNumber(j, "plr"), 3.0, 0.1);
    EXPECT_TRUE(std::isnan(jsonNumber(j, "programmeLUFS")));
    EXPECT_EQ(jsonNumber(j, "channels"), 2);
    // Rows 0 and 2 (-23, ceiling -1) conform; 21 records in all.
    std::size_t records = 0;
    for (auto at = j.find("\"index\":"); at != std::string::npos; at = j.find("\"index\":", at + 1)) ++records;
    EXPECT_EQ(records, 21u);
    EXPECT_NE(j.find("\"index\":0,\"label\":\"-23 LUFS · TV Europe (EBU R128)\",\"integratedOK\":true,\"truePeakOK\":true,"
                     "\"conform\":true"),
              std::string::npos);
    // A 12 s spot: short-term max -23 and true peak -20 both meet the short-programme limits.
    EXPECT_NE(j.find("\"isShort\":true,\"verdict\":\"CONFORME RT-040\""), std::string::npos);
}

TEST_F(AnalyseCommand, HumanFormShowsFiguresSummaryAndPad) {
    const auto file = referenceTone("tone.wav");
    const auto r = runCommand(cli + " analyse " + shellQuote(file));
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("Sonie intégrée (I)   : -23.0 LUFS"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Crête vraie          : -20.0 dBTP"), std::string::npos);
    EXPECT_NE(r.out.find("Le fichier sans aucune retouche : "), std::string::npos);
    EXPECT_NE(r.out.find("-23 LUFS · AGCOM 219/09 (Italie)"), std::string::npos);
    EXPECT_NE(r.out.find("VÉRIFICATION PAD · CST-RT-040 — Programme court"), std::string::npos);
}

TEST_F(AnalyseCommand, BadFilesFailWithTheirMessageAndTheRunGoesOn) {
    const auto good = referenceTone("good.wav");
    { std::ofstream(path("noise.xyz")) << "not audio at all"; }
    { std::ofstream(path("broken.wav")) << "RIFF\x10\0\0\0WAVEfmt "; }
    { std::ofstream(path("empty.mp3")); }
    const auto r = runCommand(cli + " analyse --json " + shellQuote(path("noise.xyz")) + " " + shellQuote(path("broken.wav")) +
                              " " + shellQuote(path("empty.mp3")) + " " + shellQuote(path("missing.wav")) + " " + shellQuote(good));
    EXPECT_EQ(r.exitCode, 1);
    const auto out = lines(r.out);
    ASSERT_EQ(out.size(), 5u) << r.out << r.err;
    EXPECT_NE(out[0].find("\"error\":\"Format non pris en charge (essayez WAV, AIFF, MP4, MOV).\""), std::string::npos);
    EXPECT_NE(out[1].find("\"error\":\"Fichier illisible ou endommagé.\""), std::string::npos);
    EXPECT_NE(out[2].find("\"status\":\"Échec lecture\""), std::string::npos);
    EXPECT_NE(out[3].find("\"status\":\"Échec lecture\""), std::string::npos);
    EXPECT_NE(out[4].find("\"status\":\"Prêt\""), std::string::npos);
}

TEST_F(AnalyseCommand, UnmeasurableFilesSayWhy) {
    writeFloatWav(dir / "short.wav", {sine(997, 0.1, 0.3, 48000)}, 48000);
    writeFloatWav(dir / "silence.wav", {std::vector<float>(480000)}, 48000);
    const auto r = runCommand(cli + " analyse --json " + shellQuote(path("short.wav")) + " " + shellQuote(path("silence.wav")));
    EXPECT_EQ(r.exitCode, 1);
    const auto out = lines(r.out);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NE(out[0].find("\"status\":\"Non mesurable\",\"info\":\"0:00 · mono · 48.0 kHz\","
                          "\"error\":\"Fichier trop court pour être mesuré (< 0,4 s).\""),
              std::string::npos)
        << out[0];
    EXPECT_NE(out[1].find("\"error\":\"Signal trop faible ou silencieux pour être mesuré.\""), std::string::npos);
    EXPECT_NE(out[1].find("\"integratedLUFS\":null"), std::string::npos);
    EXPECT_NE(out[1].find("\"truePeakDB\":-240"), std::string::npos);
}

TEST_F(AnalyseCommand, DialogueGatingReportsProgrammeLoudnessToo) {
    // A steady tone is no speech: no dialogue loudness, the programme's still given.
    const auto file = referenceTone("tone.wav");
    for (const std::string options : {"--gating dialog", "--norm 3"}) {
        const auto r = runCommand(cli + " analyse --json " + options + " " + shellQuote(file));
        EXPECT_EQ(r.exitCode, 1) << options << r.err;
        EXPECT_NE(r.out.find("\"error\":\"Aucun dialogue détecté\""), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("\"integratedLUFS\":null"), std::string::npos) << r.out;
        EXPECT_NEAR(jsonNumber(r.out, "programmeLUFS"), -23.0, 0.05) << options;
        EXPECT_EQ(jsonNumber(r.out, "dialogueShare"), 0.0) << options;
    }
    const auto ebu = runCommand(cli + " analyse --json " + shellQuote(file));
    EXPECT_NE(ebu.out.find("\"dialogueShare\":null"), std::string::npos) << ebu.out;
}

// Recordings from the test data packages (scripts/setup-deps).
const std::string readSpeech = "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-0920.wav";
const std::string instrumental = "/usr/share/games/wesnoth/1.16/data/core/music/elvish-theme.ogg";

TEST_F(AnalyseCommand, DialogueGatingTellsSpeechFromMusic) {
    if (!std::ifstream(readSpeech) || !std::ifstream(instrumental)) GTEST_SKIP() << "run scripts/setup-deps";
    const auto speech = runCommand(cli + " analyse --json --gating dialog " + shellQuote(readSpeech));
    ASSERT_EQ(speech.exitCode, 0) << speech.err;
    EXPECT_NEAR(jsonNumber(speech.out, "integratedLUFS"), jsonNumber(speech.out, "programmeLUFS"), 0.3);
    EXPECT_GT(jsonNumber(speech.out, "dialogueShare"), 0.9);

    const auto text = runCommand(cli + " analyse --gating dialog " + shellQuote(readSpeech));
    EXPECT_NE(text.out.find("Sonie dialogues (DL)"), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("Part de dialogue : "), std::string::npos) << text.out;
    EXPECT_NE(text.out.find("Excursion des dialogues"), std::string::npos) << text.out;

    const auto music = runCommand(cli + " analyse --gating dialog " + shellQuote(instrumental));
    EXPECT_EQ(music.exitCode, 1);
    EXPECT_NE(music.out.find("Non mesurable : Aucun dialogue détecté"), std::string::npos) << music.out;
    EXPECT_NE(music.out.find("Part de dialogue : 0 %"), std::string::npos) << music.out;
    EXPECT_EQ(music.out.find("Excursion des dialogues"), std::string::npos) << music.out;
}

TEST_F(AnalyseCommand, SixChannelOrderDecidesTheWeights) {
    // Tone in the fourth channel: the LFE in SMPTE order (not measured), Ls in ITU order (+1.49 dB).
    std::vector<std::vector<float>> ch(6, std::vector<float>(480000));
    ch[3] = sine(997, 0.1, 10.0, 48000);
    writeFloatWav(dir / "six.wav", ch, 48000);
    const auto smpte = runCommand(cli + " analyse --json --order smpte " + shellQuote(path("six.wav")));
    const auto itu = runCommand(cli + " analyse --json --order itu " + shellQuote(path("six.wav")));
    EXPECT_TRUE(std::isnan(jsonNumber(smpte.out, "integratedLUFS")));
    EXPECT_NEAR(jsonNumber(itu.out, "integratedLUFS"), -23.0 + 10 * std::log10(1.41), 0.05);
}

TEST(CliUsage, BadUsageExitsWithTwo) {
    EXPECT_EQ(runCommand(cli + " analyse").exitCode, 2);
    EXPECT_EQ(runCommand(cli + " analyse --norm 21 x.wav").exitCode, 2);
    EXPECT_EQ(runCommand(cli + " analyse --gating loud x.wav").exitCode, 2);
    EXPECT_EQ(runCommand(cli + " frobnicate").exitCode, 2);
    EXPECT_EQ(runCommand(cli + " --help").exitCode, 0);
}

TEST(CliNorms, ListsTheTwentyOneNorms) {
    const auto r = runCommand(cli + " norms --json");
    ASSERT_EQ(r.exitCode, 0);
    const auto out = lines(r.out);
    ASSERT_EQ(out.size(), 21u);
    EXPECT_NE(out[3].find("\"tag\":\"CALM\""), std::string::npos);
    EXPECT_NE(out[16].find("\"ceilingDBTP\":-2"), std::string::npos);
    EXPECT_NE(out[20].find("\"group\":null"), std::string::npos);
}

}  // namespace
