// velmora-cli batch and multimaster: the application's own jobs, driven from the command line,
// checked on the files they leave.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>

#include "support/TestSupport.h"

using namespace velmora::test;
namespace fs = std::filesystem;

namespace {

const std::string cli = VELMORA_CLI_PATH;

std::vector<std::vector<float>> tone(double seconds, double amplitude) {
    std::vector<float> x(std::size_t(seconds * 48000));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(amplitude * std::sin(2 * std::numbers::pi * 440 * double(i) / 48000));
    return {x, x};
}

std::string slurp(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(BatchCommand, FolderWithReportsAndOneUnreadableFile) {
    ScratchDir dir;
    fs::create_directories(dir / "in" / "more");
    writeFloatWav(dir / "in" / "Interview.wav", tone(8.0, 0.2), 48000);
    writeFloatWav(dir / "in" / "more" / "Jingle.wav", tone(5.0, 0.5), 48000);
    std::ofstream(dir / "in" / "notes.txt") << "ignored by the folder walk";
    std::ofstream(dir / "in" / "broken.flac") << "fLaC but nothing after";

    const auto r = runCommand(cli + " batch " + shellQuote((dir / "in").string()) + " -o " +
                              shellQuote((dir / "out").string()) + " --txt --pdf --lang en --target -16 --ceiling -1.5");
    EXPECT_EQ(r.exitCode, 1) << "an unreadable file is a failure\n" << r.out << r.err;
    EXPECT_NE(r.out.find("broken.flac : Échec lecture"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Interview.wav : Masterisé ✓"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Traitement par lots terminé ✓ (2 fichiers)"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find("notes.txt"), std::string::npos);

    const fs::path master = dir / "out" / "Interview_master_-16LUFS_LRA0.wav";
    ASSERT_TRUE(fs::exists(master)) << r.out;
    const auto text = slurp(fs::path(master).replace_extension("txt"));
    EXPECT_NE(text.find("Fichier exporté      : Interview_master_-16LUFS_LRA0.wav"), std::string::npos) << text;
    EXPECT_NE(text.find("Plafond True Peak    : -1.5 dBTP"), std::string::npos);
    // A target of the command line's own is named as such, on the default norm as its base.
    const std::string base = "-23 LUFS · TV Europe (EBU R128)";
    EXPECT_NE(text.find("Cible personnalisée : −16.0 LUFS (base : " + base + ")"), std::string::npos) << text;
    const auto pdf = runCommand("pdftotext " + shellQuote(fs::path(master).replace_extension("pdf").string()) + " -");
    EXPECT_NE(pdf.out.find("Mastering Report"), std::string::npos) << pdf.out;
    EXPECT_NE(pdf.out.find("Custom target: −16.0 LUFS (base: " + base + ")"), std::string::npos) << pdf.out;
    EXPECT_NE(pdf.out.find("VERDICT: COMPLIANT"), std::string::npos) << pdf.out;

    const auto check = runCommand(cli + " analyse --json " + shellQuote(master.string()));
    EXPECT_NE(check.out.find("\"integratedLUFS\":-16.0"), std::string::npos) << check.out;
}

TEST(BatchCommand, BadUsageAndUnwritableOutput) {
    ScratchDir dir;
    writeFloatWav(dir / "a.wav", tone(2.0, 0.2), 48000);
    EXPECT_EQ(runCommand(cli + " batch -o " + shellQuote((dir / "out").string())).exitCode, 2);
    EXPECT_EQ(runCommand(cli + " batch " + shellQuote((dir / "a.wav").string())).exitCode, 2);
    EXPECT_EQ(runCommand(cli + " batch " + shellQuote((dir / "a.wav").string()) + " -o x --lang de").exitCode, 2);
    std::ofstream(dir / "file") << "a file where the folder should be";
    const auto r = runCommand(cli + " batch " + shellQuote((dir / "a.wav").string()) + " -o " +
                              shellQuote((dir / "file" / "out").string()));
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.out.find("Impossible d'écrire"), std::string::npos) << r.out;
}

TEST(MultimasterCommand, GroupsListsAndTags) {
    ScratchDir dir;
    writeFloatWav(dir / "Film.wav", tone(5.0, 0.3), 48000);
    const std::string film = shellQuote((dir / "Film.wav").string());

    auto r = runCommand(cli + " multimaster " + film + " -o " + shellQuote((dir / "tv").string()) + " --group broadcast --txt");
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("Multi-Master 1/8 · "), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Multi-Master terminé ✓ (8 masters générés)"), std::string::npos) << r.out;
    for (const char* tag : {"EBU", "RT040", "AGCOM", "CALM", "CRTC", "ARIB", "OP59", "KCC"}) {
        EXPECT_TRUE(fs::exists(dir / "tv" / ("Film_master_" + std::string(tag) + ".wav"))) << tag;
        EXPECT_TRUE(fs::exists(dir / "tv" / ("Film_master_" + std::string(tag) + ".txt"))) << tag;
    }
    const auto calm = slurp(dir / "tv" / "Film_master_CALM.txt");
    EXPECT_NE(calm.find("Cible de sonie       : -24.0 LUFS"), std::string::npos) << calm;

    r = runCommand(cli + " multimaster " + film + " -o " + shellQuote((dir / "few").string()) +
                   " --norms 14,3,0 --format aiff");
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / "few"), fs::directory_iterator{}), 3);
    EXPECT_TRUE(fs::exists(dir / "few" / "Film_master_EBU.aif"));

    EXPECT_EQ(runCommand(cli + " multimaster " + film + " -o " + shellQuote((dir / "x").string())).exitCode, 2);
    EXPECT_EQ(runCommand(cli + " multimaster " + film + " -o x --norms 3,21").exitCode, 2);
    EXPECT_EQ(runCommand(cli + " multimaster " + film + " -o x --group radio").exitCode, 2);
    // Each master takes its norm's own target and ceiling: options that would be overruled are refused.
    for (const char* ignored : {"--target -16", "--ceiling -2", "--mode conform"}) {
        r = runCommand(cli + " multimaster " + film + " -o " + shellQuote((dir / "y").string()) + " --all " + ignored);
        EXPECT_EQ(r.exitCode, 2) << ignored;
        EXPECT_NE(r.err.find("does not apply"), std::string::npos) << r.err;
        EXPECT_FALSE(fs::exists(dir / "y")) << ignored;
    }
}

}  // namespace
