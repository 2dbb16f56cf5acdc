// velmora-cli batch over a shared file list, as the tasks of a scheduler's job array run it:
// every file mastered by exactly one task, each reporting in JSON lines.
#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>
#include <sstream>

#include "support/TestSupport.h"

using namespace velmora::test;
namespace fs = std::filesystem;

namespace {

const std::string cli = VELMORA_CLI_PATH;

std::vector<std::vector<float>> tone(double seconds, double amplitude, double hz) {
    std::vector<float> x(std::size_t(seconds * 48000));
    for (std::size_t i = 0; i < x.size(); ++i) x[i] = float(amplitude * std::sin(2 * std::numbers::pi * hz * double(i) / 48000));
    return {x, x};
}

std::vector<QJsonObject> jsonLines(const std::string& out) {
    std::vector<QJsonObject> objects;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
        QJsonParseError error{};
        const auto doc = QJsonDocument::fromJson(QByteArray::fromStdString(line), &error);
        EXPECT_EQ(error.error, QJsonParseError::NoError) << "not a JSON line: " << line;
        EXPECT_TRUE(doc.isObject()) << line;
        objects.push_back(doc.object());
    }
    return objects;
}

TEST(BatchSlices, EveryListedFileIsMasteredByExactlyOneTask) {
    ScratchDir dir;
    std::ofstream list(dir / "files.txt");
    list << "# the week's deliveries\n\n";
    const std::vector<double> amplitudes{0.05, 0.1, 0.2, 0.3, 0.4};
    for (std::size_t i = 0; i < amplitudes.size(); ++i) {
        const fs::path f = dir / ("take" + std::to_string(i) + ".wav");
        writeFloatWav(f, tone(2.0, amplitudes[i], 300.0 + 100.0 * double(i)), 48000);
        list << "  " << f.string() << (i == 2 ? "\r\n" : "\n");
    }
    list << fs::path(dir / "missing.wav").string() << '\n';
    list.close();

    constexpr int tasks = 3;
    std::map<std::string, int> seen;
    std::map<std::string, double> before;
    for (int t = 0; t < tasks; ++t) {
        const auto r = runCommand(cli + " batch --from-list " + shellQuote((dir / "files.txt").string()) + " --slice " +
                                  std::to_string(t) + "/" + std::to_string(tasks) + " --json --target -16 -o " +
                                  shellQuote((dir / "out").string()));
        const auto lines = jsonLines(r.out);
        bool hasMissing = false;
        for (const QJsonObject& o : lines) {
            const std::string file = o["file"].toString().toStdString();
            ++seen[file];
            if (file == "missing.wav") {
                hasMissing = true;
                EXPECT_EQ(o["status"].toString(), "unreadable");
                EXPECT_FALSE(o["error"].toString().isEmpty());
                continue;
            }
            EXPECT_EQ(o["status"].toString(), "mastered") << r.out << r.err;
            EXPECT_TRUE(o["error"].isNull());
            EXPECT_TRUE(fs::exists(o["master"].toString().toStdString())) << o["master"].toString().toStdString();
            EXPECT_NEAR(o["after"].toObject()["integratedLUFS"].toDouble(), -16.0, 0.15) << file;
            before[file] = o["before"].toObject()["integratedLUFS"].toDouble();
        }
        // A task that met a file it could not read says so by its exit status.
        EXPECT_EQ(r.exitCode, hasMissing ? 1 : 0) << r.out << r.err;
        EXPECT_NE(r.err.find("Traitement par lots terminé"), std::string::npos) << "the summary goes to stderr\n" << r.err;
    }
    ASSERT_EQ(seen.size(), amplitudes.size() + 1);
    for (const auto& [file, count] : seen) EXPECT_EQ(count, 1) << file;
    // Each line's "before" is its own file's: the takes differ by their amplitudes.
    for (std::size_t i = 1; i < amplitudes.size(); ++i)
        EXPECT_NEAR(before["take" + std::to_string(i) + ".wav"] - before["take0.wav"],
                    20 * std::log10(amplitudes[i] / amplitudes[0]), 0.3)
            << i;
}

TEST(BatchSlices, EmptySliceAndBadSlices) {
    ScratchDir dir;
    const fs::path f = dir / "only.wav";
    writeFloatWav(f, tone(1.0, 0.2, 440.0), 48000);
    std::ofstream(dir / "one.txt") << f.string() << '\n';
    const std::string base = cli + " batch --from-list " + shellQuote((dir / "one.txt").string()) + " -o " +
                             shellQuote((dir / "out").string()) + " --json --slice ";

    // More tasks than files: the spare tasks succeed without output.
    const auto spare = runCommand(base + "3/4");
    EXPECT_EQ(spare.exitCode, 0) << spare.err;
    EXPECT_EQ(spare.out, "");

    for (const char* bad : {"4/4", "1/0", "-1/3", "2", "a/3"}) {
        const auto r = runCommand(base + bad);
        EXPECT_EQ(r.exitCode, 2) << bad;
        EXPECT_NE(r.err.find("--slice"), std::string::npos) << bad << ": " << r.err;
    }
    const auto albumSlice = runCommand(base + "0/2 --album");
    EXPECT_EQ(albumSlice.exitCode, 2);
    EXPECT_NE(albumSlice.err.find("--album"), std::string::npos) << albumSlice.err;

    const auto noList = runCommand(cli + " batch --from-list " + shellQuote((dir / "absent.txt").string()) + " -o " +
                                   shellQuote((dir / "out").string()));
    EXPECT_EQ(noList.exitCode, 2);
    EXPECT_NE(noList.err.find("absent.txt"), std::string::npos) << noList.err;
}

TEST(Version, PrintedAndExitsZero) {
    const auto r = runCommand(cli + " --version");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.rfind("velmora-cli ", 0), 0u) << r.out;
}

}  // namespace
