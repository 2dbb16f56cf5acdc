#include "reports/PDFReport.h"

#include <gtest/gtest.h>

#include <QColor>
#include <QGuiApplication>
#include <QImage>

#include <cmath>
#include <initializer_list>

#include "reports/NormReference.h"
#include "reports/ReportFile.h"
#include "reports/ReportSamples.h"
#include "support/TestSupport.h"

using namespace velmora;
namespace fs = std::filesystem;

namespace {

// A dialogue-gated master for a norm with a maximum short-term limit: every conditional row.
ReportInputs fullTableMaster() {
    ReportInputs in = test::sampleMaster();
    in.before.programmeLUFS = -16.9;
    in.before.loudnessRange.reset();
    in.after = {-23.2, 8.1, -1.0, -15.1, -17.9, -21.7};
    // Ten minutes at one point a second: silence before the first full window and in a pause.
    for (int i = 0; i <= 600; ++i) {
        const double body = -17.5 + 4.0 * std::sin(i / 37.0) + 1.5 * std::sin(i / 5.3);
        const bool silent = i < 3 || (i > 300 && i < 315);
        in.beforeShortTerm.push_back(silent ? test::minusInfinity : body);
        in.afterShortTerm.push_back(silent ? test::minusInfinity : body - 4.9 - 0.3 * std::sin(i / 5.3));
    }
    return in;
}

std::string missingFrom(const std::string& text, std::initializer_list<const char*> wanted) {
    std::string missing;
    for (const char* w : wanted)
        if (text.find(w) == std::string::npos) missing += std::string("[") + w + "] ";
    return missing;
}

std::string quote(const fs::path& p) { return test::shellQuote(p.string()); }

}  // namespace

class PDFReport : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        if (QGuiApplication::instance()) return;
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "velmora_reports_tests";
        static char* argv[] = {name, nullptr};
        new QGuiApplication(argc, argv);  // lives as long as the process, as fonts expect
    }

    // Writes the report beside a master and reads it back with the poppler tools.
    std::string render(const ReportInputs& in, ReportLanguage language) {
        EXPECT_EQ(writeReport(dir / "master.wav", "pdf", makePDFReport(in, language)), std::nullopt);
        info = test::runCommand("pdfinfo " + quote(pdf)).out;
        return test::runCommand("pdftotext -enc UTF-8 " + quote(pdf) + " -").out;
    }

    QImage rasterise(int dpi) {
        test::runCommand("pdftoppm -singlefile -png -r " + std::to_string(dpi) + " " + quote(pdf) + " " +
                         quote(dir / "page"));
        return QImage(QString::fromStdString((dir / "page.png").string()));
    }

    static int pixelsNear(const QImage& image, QColor colour) {
        int n = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x) {
                const QColor c = image.pixelColor(x, y);
                if (std::abs(c.red() - colour.red()) < 10 && std::abs(c.green() - colour.green()) < 10 &&
                    std::abs(c.blue() - colour.blue()) < 10)
                    ++n;
            }
        return n;
    }

    test::ScratchDir dir;
    fs::path pdf = dir / "master.pdf";
    std::string info;
};

TEST_F(PDFReport, FrenchPageWithEveryConditionalRow) {
    const std::string text = render(fullTableMaster(), ReportLanguage::fr);
    EXPECT_NE(info.find("Pages:           1\n"), std::string::npos) << info;
    EXPECT_NE(info.find("Page size:       595 x 842 pts"), std::string::npos) << info;
    EXPECT_EQ(missingFrom(text, {"Rapport de mastering · BS.1770-4 / EBU R128", "Fichier exporté", "Stéréo",
                                 "10 min 00 s", "48.0 kHz", "Gain de conformité", "-4.6 dB", "Métrique", "AVANT",
                                 "APRÈS", "Sonie intégrée (I)", "—", "(TP − S max)", "Sonie programme (PL)",
                                 "-21.7 LUFS", "Sonie dialogue (DL)", "(PL − DL)", "MSL (Max Short-term) ≤ -18 LUFS",
                                 "Sonie court terme", "VERDICT : CONFORME", "Norme : -23 LUFS · TV Europe (EBU R128)",
                                 "2.0:1 · réduction max 3.5 dB", "Désactivé", "cible 12.0 LU",
                                 "Mid +0.0 dB · Side +1.5 dB", "Scanner pour la norme officielle",
                                 "Généré le 14/03/2025 09:05"}),
              "");
    // Text set in an embedded font, and the icon as a real image.
    EXPECT_NE(test::runCommand("pdffonts " + quote(pdf)).out.find("DejaVuSans"), std::string::npos);
    EXPECT_NE(test::runCommand("pdfimages -list " + quote(pdf)).out.find("256   256"), std::string::npos);
}

TEST_F(PDFReport, EnglishPageWithTheSevenBasicRows) {
    ReportInputs in = test::sampleMaster();
    in.presetIndex = 14;
    in.target = presetAt(14).lufs;
    in.ceiling = presetAt(14).ceiling;
    in.params = {};
    const std::string text = render(in, ReportLanguage::en);
    EXPECT_EQ(missingFrom(text, {"Mastering Report · BS.1770-4 / EBU R128", "Source file", "Stereo",
                                 "Conformity gain", "Metric", "BEFORE", "AFTER", "Integrated loudness (I)",
                                 "Short-term max (S)", "VERDICT: NON-COMPLIANT",
                                 "Standard: -14 LUFS · Spotify (normalized)", "Mastering chain", "Mid/Side width",
                                 "Bypass", "Scan for the official standard", "Generated on 14/03/2025 09:05"}),
              "");
    for (const char* absent : {"Programme loudness", "Dialogue loudness", "LDR", "MSL", "Short-term loudness"})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent;
}

TEST_F(PDFReport, VerdictColourFollowsTheNorm) {
    const QColor green = QColor::fromRgbF(0.5f, 1.0f, 0.55f), red = QColor::fromRgbF(1.0f, 0.55f, 0.5f);
    ReportInputs in = fullTableMaster();
    std::string text = render(in, ReportLanguage::fr);
    EXPECT_NE(text.find("VERDICT : CONFORME"), std::string::npos);
    QImage page = rasterise(72);
    EXPECT_GT(pixelsNear(page, green), 100);
    EXPECT_EQ(pixelsNear(page, red), 0);

    in.presetIndex = 1;  // same master, a -3 dBTP ceiling
    in.ceiling = -3.0;
    ASSERT_EQ(normVerdict(in.after, presetAt(1)).reason, VerdictReason::peakOver);
    text = render(in, ReportLanguage::fr);
    EXPECT_EQ(missingFrom(text, {"VERDICT : NON CONFORME", "TP au-dessus du plafond",
                                 "Norme : -23 LUFS · PAD TV France (CST RT-040)"}),
              "");
    page = rasterise(72);
    EXPECT_GT(pixelsNear(page, red), 100);
    EXPECT_EQ(pixelsNear(page, green), 0);
}

TEST_F(PDFReport, MissedTargetIsStatedAndNeverCompliant) {
    ReportInputs in = fullTableMaster();  // -23.2 LUFS: inside the norm's tolerance
    in.targetMissedLUFS = -23.2;
    std::string text = render(in, ReportLanguage::fr);
    EXPECT_EQ(missingFrom(text, {"VERDICT : NON CONFORME", "Intégrée hors cible",
                                 "Cible non atteinte : -23.2 LUFS (plafond True Peak)"}),
              "");
    const QColor green = QColor::fromRgbF(0.5f, 1.0f, 0.55f);
    EXPECT_EQ(pixelsNear(rasterise(72), green), 0);

    text = render(in, ReportLanguage::en);
    EXPECT_EQ(missingFrom(text, {"VERDICT: NON-COMPLIANT", "Integrated loudness off target",
                                 "Target not reached: -23.2 LUFS (True Peak ceiling)"}),
              "");
    EXPECT_EQ(text.find("Cible non atteinte"), std::string::npos);
}

TEST_F(PDFReport, QRCodeLeadsToTheNormsPublisherWhenThereIsOne) {
    for (int norm : {0, 6, 18}) {  // a short address, the longest one, and Deezer which has none
        ReportInputs in = fullTableMaster();
        in.presetIndex = norm;
        const bool captioned = render(in, ReportLanguage::fr).find("Scanner pour") != std::string::npos;
        rasterise(300);
        const auto url = officialReferenceURL(presetAt(norm).label);
        EXPECT_EQ(test::runCommand("zbarimg --raw -q " + quote(dir / "page.png")).out,
                  url ? std::string(*url) + "\n" : "")
            << "norm " << norm;
        EXPECT_EQ(captioned, url.has_value()) << "norm " << norm;
    }
}

TEST_F(PDFReport, SourceEventsAreMarkedOnTheGraphAndTheFirstTenListed) {
    ReportInputs in = fullTableMaster();
    in.channelLabels = {"L", "R"};
    in.sourceEvents.emplace();
    for (int k = 0; k < 12; ++k)
        in.sourceEvents->push_back({k % 3 == 0 ? EventKind::clipping : EventKind::truePeakOver, 30.0 + 40.0 * k,
                                    30.5 + 40.0 * k, k % 3 == 0 ? 0.0 : 0.4, k % 2});
    const std::string text = render(in, ReportLanguage::fr);
    EXPECT_NE(info.find("Pages:           1\n"), std::string::npos) << info;
    EXPECT_EQ(missingFrom(text, {"Événements de la source (12)", "00:00:30.00", "Écrêtage", "Dépassement TP",
                                 "+0.4 dBTP", "00:06:30.00", "… et 2 autres dans le rapport texte"}),
              "");
    EXPECT_EQ(text.find("00:07:10.00"), std::string::npos);  // the eleventh is counted, not listed
    // The clipped passages in red along the bottom of the graph, beside the failing colours.
    const QImage page = rasterise(72);
    ASSERT_FALSE(page.isNull());
    const QImage without = [&] {
        ReportInputs plain = fullTableMaster();
        plain.sourceEvents.emplace();
        render(plain, ReportLanguage::fr);
        return rasterise(72);
    }();
    EXPECT_GT(pixelsNear(page, QColor::fromRgbF(1.0f, 0.55f, 0.5f)), pixelsNear(without, QColor::fromRgbF(1.0f, 0.55f, 0.5f)) + 10);
}

TEST_F(PDFReport, CustomTargetIsNamedWithItsBaseAndJudgedOn) {
    const std::string base = "-23 LUFS · TV Europe (EBU R128)";
    ReportInputs in = fullTableMaster();
    in.target = -21.5;
    in.after.integratedLUFS = -21.5;
    // The base norm alone would fail this master: it asks for -23.
    ASSERT_EQ(normVerdict(in.after, presetAt(0)).reason, VerdictReason::loudnessOff);
    std::string text = render(in, ReportLanguage::fr);
    EXPECT_EQ(missingFrom(text, {("Cible personnalisée : −21.5 LUFS (base : " + base + ")").c_str(),
                                 ("Personnalisé (base : " + base + ")").c_str(), "VERDICT : CONFORME",
                                 "Sonie et True Peak dans la cible"}),
              "");
    for (const char* absent : {"Norme : ", "Cible normative", "NON CONFORME"})
        EXPECT_EQ(text.find(absent), std::string::npos) << absent;

    text = render(in, ReportLanguage::en);
    EXPECT_EQ(missingFrom(text, {("Custom target: −21.5 LUFS (base: " + base + ")").c_str(), "VERDICT: COMPLIANT"}), "");

    // The master left at the norm's -23 misses the custom target.
    in.after.integratedLUFS = -23.0;
    text = render(in, ReportLanguage::fr);
    EXPECT_EQ(missingFrom(text, {"VERDICT : NON CONFORME", "Intégrée hors cible"}), "");

    // A ceiling below the master's peak fails it, where the base norm's -1 dBTP would pass it.
    in = fullTableMaster();
    in.ceiling = -2.0;
    text = render(in, ReportLanguage::fr);
    EXPECT_EQ(missingFrom(text, {("Cible personnalisée : −23.0 LUFS (base : " + base + ")").c_str(),
                                 "VERDICT : NON CONFORME", "TP au-dessus du plafond"}),
              "");
}
