// velmora-cli master, calibrate and ab on real files: the true-peak promise is checked on the
// file as written, read back through the analyser.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <random>

#include "support/ProgrammeMaterial.h"
#include "support/TestSupport.h"

using namespace velmora::test;

namespace {

const std::string cli = VELMORA_CLI_PATH;

double jsonNumber(const std::string& json, const std::string& key) {
    const auto at = json.find("\"" + key + "\":");
    if (at == std::string::npos || json.compare(at + key.size() + 3, 4, "null") == 0) return NAN;
    return std::strtod(json.c_str() + at + key.size() + 3, nullptr);
}

// Material that defeats a sample-peak limiter: inter-sample crests, hard edges, clipping.
std::vector<std::vector<float>> hardMaterial(const std::string& kind, double fs, double seconds) {
    const auto n = std::size_t(fs * seconds);
    std::vector<float> x(n);
    std::mt19937 rng(7);
    std::normal_distribution<double> noise(0.0, 0.5);
    for (std::size_t i = 0; i < n; ++i) {
        const double t = double(i) / fs;
        const bool on = std::fmod(t, 1.0) < 0.5;  // bursts
        if (kind == "fs4") x[i] = on ? float(std::sin(std::numbers::pi / 2 * double(i) + std::numbers::pi / 4)) : 0.0f;
        else if (kind == "square") x[i] = std::sin(2 * std::numbers::pi * 997 * t) >= 0 ? 0.99f : -0.99f;
        else x[i] = float(std::clamp(noise(rng) * 3.0, -1.0, 1.0));  // clipped, heavily compressed noise
    }
    return {x, x};
}

struct Case {
    const char* kind;
    double sourceRate;
    const char* options;
};

class TruePeakPromise : public ::testing::TestWithParam<Case> {};

TEST_P(TruePeakPromise, WrittenFileStaysUnderTheCeiling) {
    const auto& c = GetParam();
    ScratchDir dir;
    writeFloatWav(dir / "src.wav", hardMaterial(c.kind, c.sourceRate, 6.0), int(c.sourceRate));
    const auto out = (dir / "out.wav").string();
    const auto r = runCommand(cli + " master " + shellQuote((dir / "src.wav").string()) + " -o " + shellQuote(out) +
                              " --norm 14 " + c.options);
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("Enregistré : out.wav · "), std::string::npos) << r.out;
    const auto a = runCommand(cli + " analyse --json " + shellQuote(out));
    ASSERT_EQ(a.exitCode, 0) << a.out;
    EXPECT_LE(jsonNumber(a.out, "truePeakDB"), -1.0) << a.out;
}

INSTANTIATE_TEST_SUITE_P(HardMaterial, TruePeakPromise,
                         ::testing::Values(Case{"fs4", 48000, "--bits 16"}, Case{"square", 48000, ""},
                                           Case{"clipped", 48000, "--bits 16"},
                                           Case{"fs4", 44100, "--rate 48000"}, Case{"square", 44100, "--rate 96000 --bits 16"},
                                           Case{"clipped", 44100, "--rate 96000"}),
                         [](const auto& info) {
                             return std::string(info.param.kind) + "_" + std::to_string(int(info.param.sourceRate)) + "_" +
                                    std::to_string(info.index);
                         });

TEST(MasterCommand, FolderOutputGetsTheProposedNameAndLandsOnTarget) {
    ScratchDir dir;
    writeFloatWav(dir / "Interview.wav", hardMaterial("clipped", 48000, 8.0), 48000);
    std::filesystem::create_directory(dir / "out");
    const auto r = runCommand(cli + " master " + shellQuote((dir / "Interview.wav").string()) + " -o " +
                              shellQuote((dir / "out").string()) + " --mode conform --target -16.5 --format aiff");
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    const auto written = dir / "out" / "Interview_corrige_-16.5LUFS.aif";
    ASSERT_TRUE(std::filesystem::exists(written)) << r.out;
    const auto a = runCommand(cli + " analyse --json " + shellQuote(written.string()));
    EXPECT_NEAR(jsonNumber(a.out, "integratedLUFS"), -16.5, 0.1) << a.out;
}

// The loud norm on dense material written at another rate, into a folder made for it: the file
// lands on −9 LUFS and under −1 dBTP as the analyser reads it back.
TEST(MasterCommand, LoudMasterOfDenseMaterialLandsOnTargetUnderTheCeiling) {
    ScratchDir dir;
    writeFloatWav(dir / "dense.wav", programme(Material::dense, 44100, 8.0), 44100);
    const auto r = runCommand(cli + " master " + shellQuote((dir / "dense.wav").string()) + " -o " +
                              shellQuote((dir / "out").string() + "/") + " --norm 20 --rate 48000");
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    const auto a = runCommand(cli + " analyse --json " + shellQuote((dir / "out" / "dense_master_-9LUFS.wav").string()));
    ASSERT_EQ(a.exitCode, 0) << a.out << r.out;
    EXPECT_NEAR(jsonNumber(a.out, "integratedLUFS"), -9.0, 0.1) << a.out;
    EXPECT_LE(jsonNumber(a.out, "truePeakDB"), -1.0) << a.out;
    EXPECT_EQ(jsonNumber(a.out, "sampleRate"), 48000) << a.out;
}

TEST(MasterCommand, FailuresSayWhyAndNeverTouchTheSource) {
    ScratchDir dir;
    const auto src = (dir / "src.wav").string();
    writeFloatWav(dir / "src.wav", {std::vector<float>(480000)}, 48000);
    const auto silent = runCommand(cli + " master " + shellQuote(src) + " -o " + shellQuote((dir / "m.wav").string()));
    EXPECT_EQ(silent.exitCode, 1);
    EXPECT_NE(silent.out.find("Échec enregistrement : Signal trop faible ou silencieux pour être mesuré."), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir / "m.wav"));

    writeFloatWav(dir / "src.wav", hardMaterial("clipped", 48000, 3.0), 48000);
    const auto before = std::filesystem::file_size(src);
    const auto self = runCommand(cli + " master " + shellQuote(src) + " -o " + shellQuote(src));
    EXPECT_EQ(self.exitCode, 1);
    EXPECT_NE(self.out.find("Échec enregistrement : Le master ne peut pas remplacer son fichier source"), std::string::npos)
        << self.out;
    EXPECT_EQ(std::filesystem::file_size(src), before);
    // A folder that cannot be made: under a file.
    const auto impossible = runCommand(cli + " master " + shellQuote(src) + " -o " + shellQuote(src + "/sub/"));
    EXPECT_EQ(impossible.exitCode, 1);
    EXPECT_EQ(std::filesystem::file_size(src), before);
}

// ---- Usage ----

TEST(MasterUsage, ANormsLockedCeilingCannotBeReplaced) {
    ScratchDir dir;
    writeFloatWav(dir / "src.wav", hardMaterial("clipped", 48000, 3.0), 48000);
    const std::string files = shellQuote((dir / "src.wav").string()) + " -o " + shellQuote((dir / "out.wav").string());
    for (const std::string& command : {"master " + files + " --norm 1", "master " + files + " --norm 3",
                                      "master " + files + " --norm=8", "batch " + files + " --norm 1"}) {
        const auto r = runCommand(cli + " " + command + " --ceiling -1.0");
        EXPECT_EQ(r.exitCode, 2) << command << '\n' << r.out << r.err;
        EXPECT_NE(r.err.find("Plafond imposé par la norme du preset (non modifiable).\n"), std::string::npos)
            << command << '\n' << r.err;
    }
    EXPECT_FALSE(std::filesystem::exists(dir / "out.wav"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);

    // The default norm leaves its ceiling open.
    const auto open = runCommand(cli + " master " + files + " --ceiling -2.5");
    ASSERT_EQ(open.exitCode, 0) << open.out << open.err;
    EXPECT_NE(open.out.find("(plafond -2.5 dBTP)"), std::string::npos) << open.out;
    EXPECT_TRUE(std::filesystem::exists(dir / "out.wav"));
}

// A named file's extension decides its container; a --format that says otherwise is refused.
TEST(MasterUsage, TheDestinationsExtensionDecidesTheContainer) {
    ScratchDir dir;
    writeFloatWav(dir / "src.wav", hardMaterial("clipped", 48000, 3.0), 48000);
    const std::string src = shellQuote((dir / "src.wav").string());
    const auto aif = runCommand(cli + " master " + src + " -o " + shellQuote((dir / "mix.aif").string()));
    ASSERT_EQ(aif.exitCode, 0) << aif.out << aif.err;
    EXPECT_EQ(runCommand("head -c 4 " + shellQuote((dir / "mix.aif").string())).out, "FORM");
    const auto contradicted =
        runCommand(cli + " master " + src + " -o " + shellQuote((dir / "other.aif").string()) + " --format wav");
    EXPECT_EQ(contradicted.exitCode, 2) << contradicted.out;
    EXPECT_NE(contradicted.err.find("--format wav contradicts -o"), std::string::npos) << contradicted.err;
    EXPECT_FALSE(std::filesystem::exists(dir / "other.aif"));
}

TEST(SignalCommands, CalibrationNoiseAndABPair) {
    ScratchDir dir;
    const auto cal = runCommand(cli + " calibrate -o " + shellQuote(dir.path().string()));
    ASSERT_EQ(cal.exitCode, 0) << cal.out;
    const auto a = runCommand(cli + " analyse --json " + shellQuote((dir / "RLL_500-2000Hz_-23LUFS_30s.wav").string()));
    EXPECT_NEAR(jsonNumber(a.out, "integratedLUFS"), -23.0, 0.05);
    EXPECT_EQ(jsonNumber(a.out, "channels"), 1);

    writeFloatWav(dir / "song.wav", hardMaterial("clipped", 48000, 40.0), 48000);
    const auto ab = runCommand(cli + " ab " + shellQuote((dir / "song.wav").string()) + " --norm 14");
    ASSERT_EQ(ab.exitCode, 0) << ab.out << ab.err;
    for (const char* name : {"song_AB_AVANT.wav", "song_AB_APRES.wav"}) {
        const auto m = runCommand(cli + " analyse --json " + shellQuote((dir / name).string()));
        EXPECT_NEAR(jsonNumber(m.out, "durationSeconds"), 30.0, 1e-6) << name;
    }
    const auto after = runCommand(cli + " analyse --json " + shellQuote((dir / "song_AB_APRES.wav").string()));
    EXPECT_NEAR(jsonNumber(after.out, "integratedLUFS"), -14.0, 0.5);
}

}  // namespace
