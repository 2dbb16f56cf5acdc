// velmora-cli batch --album: tracks brought to the target together, checked against loudness
// computed here from the signals' known levels.
#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <sstream>

#include "audio/NumberFormat.h"
#include "support/TestSupport.h"

using namespace velmora::test;
namespace fs = std::filesystem;

namespace {

const std::string cli = VELMORA_CLI_PATH;

// A 997 Hz stereo sine (K-weighting is within 0.1 dB of flat there), optionally with a 10 ms
// burst near full scale in its middle.
std::vector<std::vector<float>> track(double seconds, double amplitude, double burst = 0.0) {
    std::vector<float> x(std::size_t(seconds * 48000));
    for (std::size_t i = 0; i < x.size(); ++i) {
        const bool inBurst = burst > 0 && i >= x.size() / 2 && i < x.size() / 2 + 480;
        x[i] = float((inBurst ? burst : amplitude) * std::sin(2 * std::numbers::pi * 997 * double(i) / 48000));
    }
    return {x, x};
}

// The loudness of a stereo sine of this amplitude near 1 kHz: two channels of mean square a²/2,
// where the K-weighting's gain (+0.69 dB) cancels the -0.691 offset.
double sineLUFS(double amplitude) { return 10 * std::log10(2 * amplitude * amplitude / 2); }

std::map<std::string, QJsonObject> runAlbum(const ScratchDir& dir, const std::vector<std::string>& files, double target,
                                            std::string& err, int& exitCode) {
    std::string command = cli + " batch --album --json --txt --pdf --target " + std::to_string(target) +
                          " --ceiling -1 -o " + shellQuote((dir / "out").string());
    for (const auto& f : files) {
        command += ' ';
        command += shellQuote((dir / f).string());
    }
    const auto r = runCommand(command);
    err = r.err;
    exitCode = r.exitCode;
    std::map<std::string, QJsonObject> lines;
    std::istringstream in(r.out);
    std::string line;
    while (std::getline(in, line)) {
        const QJsonObject o = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
        lines[o["file"].toString().toStdString()] = o;
    }
    return lines;
}

double integrated(const QJsonObject& line, const char* which) {
    return line[which].toObject()["integratedLUFS"].toDouble();
}

TEST(AlbumBatch, OneGainForEveryTrackFromTheAlbumGatedAsOneProgramme) {
    ScratchDir dir;
    const std::vector<double> amplitudes{0.2, 0.1, 0.05};
    const std::vector<std::string> names{"01.wav", "02.wav", "03.wav", "04_quiet.wav"};
    for (std::size_t i = 0; i < amplitudes.size(); ++i) writeFloatWav(dir / names[i], track(6.0, amplitudes[i]), 48000);
    // 40 dB under the others: the album's relative gate leaves it out, as it would a quiet
    // passage of one long programme, yet it gets the album's gain like any other track.
    writeFloatWav(dir / names[3], track(6.0, 0.002), 48000);

    std::string err;
    int exitCode = -1;
    const auto lines = runAlbum(dir, names, -16.0, err, exitCode);
    ASSERT_EQ(exitCode, 0) << err;
    ASSERT_EQ(lines.size(), names.size()) << err;

    // Equal lengths: the album's loudness is the mean energy of the three gated tracks.
    double energy = 0;
    for (double a : amplitudes) energy += std::pow(10.0, sineLUFS(a) / 10) / 3;
    const double album = 10 * std::log10(energy);
    const double gain = -16.0 - album;
    for (const auto& name : names) {
        const QJsonObject& o = lines.at(name);
        EXPECT_EQ(o["status"].toString(), "mastered") << name;
        EXPECT_NEAR(o["albumLUFS"].toDouble(), album, 0.1) << name;
        EXPECT_NEAR(o["albumGainDB"].toDouble(), gain, 0.1) << name;
        // Every track moved by the same gain: the balance is kept.
        EXPECT_NEAR(integrated(o, "after") - integrated(o, "before"), gain, 0.15) << name;
    }
    EXPECT_NEAR(integrated(lines.at("01.wav"), "after"), sineLUFS(0.2) + gain, 0.15);
    EXPECT_NE(err.find("album " + std::string(album < 0 ? "-" : "")), std::string::npos) << err;
    EXPECT_EQ(err.find("abaissé"), std::string::npos) << err;
    // The report of each track gives the album and the track.
    std::ifstream report(fs::path(lines.at("02.wav")["master"].toString().toStdString()).replace_extension("txt"));
    const std::string text{std::istreambuf_iterator<char>(report), {}};
    EXPECT_NE(text.find("sonie " + velmora::formatOneDecimal(lines.at("02.wav")["albumLUFS"].toDouble()) + " LUFS, gain "),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("Sonie du titre"), std::string::npos) << text;
    const std::string pdf = fs::path(lines.at("02.wav")["master"].toString().toStdString()).replace_extension("pdf");
    const auto shown = runCommand("pdftotext " + shellQuote(pdf) + " -");
    EXPECT_NE(shown.out.find("Album " + velmora::formatOneDecimal(lines.at("02.wav")["albumLUFS"].toDouble()) + " LUFS"),
              std::string::npos)
        << shown.out;
}

TEST(AlbumBatch, ATrackThatWouldNeedMoreThan12dBOfLimitingLowersTheGainForAll) {
    ScratchDir dir;
    writeFloatWav(dir / "calm.wav", track(6.0, 0.02), 48000);
    writeFloatWav(dir / "hit.wav", track(6.0, 0.02, 0.9), 48000);  // one crest at -0.9 dBFS

    std::string err;
    int exitCode = -1;
    const auto lines = runAlbum(dir, {"calm.wav", "hit.wav"}, -10.0, err, exitCode);
    ASSERT_EQ(exitCode, 0) << err;
    ASSERT_EQ(lines.size(), 2u) << err;
    const double wanted = -10.0 - lines.at("calm.wav")["albumLUFS"].toDouble();
    const double given = lines.at("calm.wav")["albumGainDB"].toDouble();
    // The crest's true peak (about -0.9 dBTP) raised by the gain may land 12 dB over the -1 dBTP ceiling, no more.
    EXPECT_NEAR(given, -1.0 + 12.0 + 0.9, 0.2);
    EXPECT_LT(given, wanted - 5.0);
    const QJsonObject& calm = lines.at("calm.wav");
    EXPECT_NEAR(integrated(calm, "after") - integrated(calm, "before"), given, 0.2);
    // The crest track's own limiter took its 12 dB: its peak is at the ceiling, and the burst
    // that carried much of its loudness came down.
    const QJsonObject& hit = lines.at("hit.wav");
    EXPECT_LE(hit["after"].toObject()["truePeakDB"].toDouble(), -1.0);
    EXPECT_LT(integrated(hit, "after"), integrated(hit, "before") + given - 1.0);
    EXPECT_NE(err.find("gain d'album abaissé de"), std::string::npos) << err;
    std::ifstream report(fs::path(lines.at("hit.wav")["master"].toString().toStdString()).replace_extension("txt"));
    const std::string text{std::istreambuf_iterator<char>(report), {}};
    EXPECT_NE(text.find("Gain d'album abaissé"), std::string::npos) << text;
}

}  // namespace
