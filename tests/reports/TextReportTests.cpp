#include "reports/TextReport.h"

#include <gtest/gtest.h>

#include <cctype>

#include <fcntl.h>
#include <fstream>
#include <set>
#include <string_view>
#include <sys/fsuid.h>
#include <unistd.h>

#include "reports/ReportFile.h"
#include "reports/ReportSamples.h"
#include "support/TestSupport.h"

using namespace velmora;
using velmora::test::minusInfinity;
using velmora::test::sampleMaster;
namespace fs = std::filesystem;

namespace {

const std::string expectedSampleReport = R"(============================================================
VELMORA — RAPPORT DE MASTERING
============================================================
Date                 : 14/03/2025 09:05
Fichier source       : Interview brute.wav
Fichier exporté      : Interview brute_EBU.wav

RÉGLAGES
Canaux               : 2
Fréquence            : 48.0 kHz
Profondeur           : 24 bits
Cible de sonie       : -23.0 LUFS
Plafond True Peak    : -1.0 dBTP
Gain de conformité   : -4.6 dB

CHAÎNE MASTER
Égaliseur            : HPF 40 Hz · LF 120 Hz +1.5 dB · HMF 3000 Hz -2.0 dB Q1.4
Bus compresseur      : seuil -18.0 dB · 2.0:1 · att 10.0 ms · rel 200 ms · makeup +1.0 dB · GR max 3.5 dB
EQ tonal             : désactivé
Réduction de LRA     : cible 12.0 LU
Largeur Mid/Side     : Mid +0.0 dB · Side +1.5 dB
Protection auto      : activée (seuil 1.5 dB)

MESURES (ITU-R BS.1770-4 / EBU R128)
                       AVANT        APRÈS
Sonie intégrée (I)   : -18.4 LUFS    -23.0 LUFS
Plage de sonie (LRA) : 9.3 LU      8.7 LU
Momentanée max (M)   : -10.2 LUFS    -15.1 LUFS
Court-terme max (S)  : -13.1 LUFS    -17.9 LUFS
Crête vraie          : -0.3 dBTP    -1.2 dBTP
PLR (TP - I)         : 18.1 LU      21.8 LU
PSR (TP - S max)     : 12.8 LU      16.7 LU

VÉRIFICATION PAD · CST-RT-040 — Programme long
Verdict : NON CONFORME
        [!!] Crête vraie (True Peak)    -1.2 dBTP  (≤ -3,0 dBTP)
        [OK] Sonie intégrée (I)         -23.0 LUFS  (-23,0 ±1,0 LUFS)
        [OK] Plage de sonie (LRA)       8.7 LU  (≤ 20,0 LU)
        [OK] Sonie court terme max      -17.9 LUFS  (≤ -16,0 LUFS)
Note : mesures sur le programme entier. L'excursion des dialogues seuls
(-30 a -16 LUFS court terme) n'est pas verifiee ici (detection dediee requise).
============================================================
Généré par Velmora)";

// The report line that starts with `label`, without its label.
std::string valueOf(const std::string& report, const std::string& label) {
    const auto at = report.find("\n" + label);
    if (at == std::string::npos) return "<missing " + label + ">";
    const auto start = at + 1 + label.size();
    return report.substr(start, report.find('\n', start) - start);
}

int padCheckLines(const std::string& report) {
    int n = 0;
    for (std::size_t at = 0; (at = report.find("\n        [", at)) != std::string::npos; ++at) ++n;
    return n;
}

}  // namespace

TEST(TextReport, RepresentativeMasterReadsExactly) {
    EXPECT_EQ(makeTextReport(sampleMaster()), expectedSampleReport);
}

TEST(TextReport, UnmeasurableValuesAndChainStagesAtRest) {
    ReportInputs in = sampleMaster();
    in.after = {minusInfinity, std::nullopt, -240.0, minusInfinity, minusInfinity, std::nullopt};  // silence
    MasterParams& p = in.params;
    p.hpfOn = false;
    p.lsGain = p.b1Gain = p.b2Gain = p.hsGain = 0.04;
    p.teqOn = true;
    p.tMidGain = 2.25;
    p.tHsGain = -1.0;
    p.sideGain = 0.005;
    p.compOn = p.lraOn = p.autoProtectComp = false;
    in.sampleRate = 44100;
    in.bitDepth = 32;
    in.isFloat = true;
    const std::string r = makeTextReport(in);
    EXPECT_EQ(valueOf(r, "Sonie intégrée (I)   : "), "-18.4 LUFS    — LUFS");
    EXPECT_EQ(valueOf(r, "Plage de sonie (LRA) : "), "9.3 LU      — LU");
    // The engine's floor for a silent peak is finite; the differences must still not print.
    EXPECT_EQ(valueOf(r, "PLR (TP - I)         : "), "18.1 LU      — LU");
    EXPECT_EQ(valueOf(r, "PSR (TP - S max)     : "), "12.8 LU      — LU");
    EXPECT_EQ(valueOf(r, "Égaliseur            : "), "actif (neutre)");
    EXPECT_EQ(valueOf(r, "EQ tonal             : "), "Médiums 1000 Hz +2.2 dB Q0.7 · Aigus 10000 Hz -1.0 dB");
    EXPECT_EQ(valueOf(r, "Largeur Mid/Side     : "), "désactivé");
    EXPECT_EQ(valueOf(r, "Bus compresseur      : "), "désactivé");
    EXPECT_EQ(valueOf(r, "Réduction de LRA     : "), "désactivée");
    EXPECT_EQ(valueOf(r, "Protection auto      : "), "désactivée");
    EXPECT_EQ(valueOf(r, "Fréquence            : "), "44.1 kHz");
    EXPECT_EQ(valueOf(r, "Profondeur           : "), "32 bits flottant");
}

TEST(TextReport, PadSectionFollowsProgrammeLength) {
    ReportInputs in = sampleMaster();
    in.durationSeconds = 30;
    std::string r = makeTextReport(in);
    EXPECT_NE(r.find("\n\nVÉRIFICATION PAD · CST-RT-040 — Programme court\nVerdict : NON CONFORME\n"), std::string::npos);
    EXPECT_EQ(padCheckLines(r), 3);

    in.after.truePeakDB = -3.5;
    in.after.shortTermMax = -20.5;
    in.durationSeconds = 600;
    r = makeTextReport(in);
    EXPECT_NE(r.find("— Programme long\nVerdict : CONFORME RT-040\n"), std::string::npos);
    EXPECT_EQ(padCheckLines(r), 4);

    // No frames, no check: the closing rule comes straight after the last measurement.
    in.durationSeconds = 0;
    in.date.clear();
    r = makeTextReport(in);
    EXPECT_EQ(r.substr(r.find("\nPSR")), "\nPSR (TP - S max)     : 12.8 LU      17.0 LU\n" + std::string(60, '=') +
                                             "\nGénéré par Velmora");
    // Without a date the report takes the current one: "dd/MM/yyyy HH:mm".
    const auto at = r.find("\nDate                 : ");
    ASSERT_NE(at, std::string::npos);
    const std::string date = r.substr(at + 24, r.find('\n', at + 1) - at - 24);
    ASSERT_EQ(date.size(), 16u) << date;
    for (std::size_t i = 0; i < date.size(); ++i)
        EXPECT_TRUE(i == 2 || i == 5 ? date[i] == '/' : i == 10 ? date[i] == ' ' : i == 13 ? date[i] == ':'
                                                                                              : std::isdigit(date[i]))
            << date;
}

TEST(TextReport, MissedTargetIsStatedBesideTheMeasurements) {
    ReportInputs in = sampleMaster();
    // The PAD check judges what was measured, missed target or not.
    in.after.integratedLUFS = -23.2;
    in.after.truePeakDB = -3.5;
    in.after.shortTermMax = -20.5;
    std::string expected = makeTextReport(in);
    ASSERT_NE(expected.find("\nVerdict : CONFORME RT-040\n"), std::string::npos) << expected;

    in.targetMissedLUFS = -23.24;
    expected.insert(expected.find("\n\nVÉRIFICATION PAD"), "\nCible non atteinte : -23.2 LUFS (plafond True Peak)");
    EXPECT_EQ(makeTextReport(in), expected);

    // Without frames there is no check, but the missed target is still said.
    in.durationSeconds = 0;
    const std::string r = makeTextReport(in);
    EXPECT_NE(r.find("\nCible non atteinte : -23.2 LUFS (plafond True Peak)\n" + std::string(60, '=')), std::string::npos)
        << r;
}

TEST(TextReport, EverySourceEventIsListedWithItsTimecode) {
    ReportInputs in = sampleMaster();
    const std::string without = makeTextReport(in);
    in.channelLabels = {"L", "R"};
    in.sourceEvents.emplace();
    const std::string none = makeTextReport(in);
    EXPECT_NE(none.find("\n\nÉVÉNEMENTS DE LA SOURCE (0)\nAucun dépassement ni écrêtage.\n" + std::string(60, '=')),
              std::string::npos)
        << none;
    for (int k = 0; k < 30; ++k) in.sourceEvents->push_back({EventKind::truePeakOver, 3600.0 + k, 3600.2 + k, 0.44, 1});
    in.sourceEvents->push_back({EventKind::shortTermOver, 4000.5, 4003.0, -16.26, std::nullopt});
    const std::string r = makeTextReport(in);
    EXPECT_NE(r.find("ÉVÉNEMENTS DE LA SOURCE (31)\n01:00:00.00  Dépassement TP    +0.4 dBTP  R\n"), std::string::npos) << r;
    EXPECT_NE(r.find("\n01:00:29.00  Dépassement TP    +0.4 dBTP  R\n01:06:40.50  Dépassement S    -16.3 LUFS\n"),
              std::string::npos)
        << r;
    // The section is added; nothing else changes.
    EXPECT_EQ(r.substr(0, r.find("\n\nÉVÉNEMENTS")), without.substr(0, without.rfind('\n' + std::string(60, '='))));
}

TEST(TextReport, DialogueShareAndExcursionWhenSpeechWasMeasured) {
    ReportInputs in = sampleMaster();
    in.durationSeconds = 600;
    std::string r = makeTextReport(in);
    EXPECT_EQ(r.find("Part de dialogue"), std::string::npos);
    EXPECT_NE(r.find("n'est pas verifiee ici"), std::string::npos);

    in.before.programmeLUFS = -21.0;
    in.before.dialogueShare = 0.424;
    in.after.dialogueShortTermMin = -27.3;
    in.after.dialogueShortTermMax = -18.1;
    r = makeTextReport(in);
    EXPECT_NE(r.find("\nPart de dialogue : 42 %\n"), std::string::npos) << r;
    EXPECT_NE(r.find("[OK] Excursion des dialogues    -27.3 à -18.1 LUFS  (-30,0 à -16,0 LUFS)"), std::string::npos)
        << r;
    EXPECT_NE(r.find("est verifiee sur les passages de parole detectes."), std::string::npos) << r;
    EXPECT_EQ(padCheckLines(r), 5);
}

// ---- Writing beside the master ----

namespace {

std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::set<std::string> entries(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(folder)) names.insert(e.path().filename().string());
    return names;
}

}  // namespace

TEST(ReportFile, WritesBesideTheMasterUnderItsName) {
    test::ScratchDir dir;
    std::ofstream(dir / "X.wav") << "master";
    std::ofstream(dir / "X.txt") << "an older report, longer than the new one";
    const std::string report = makeTextReport(sampleMaster());
    EXPECT_EQ(writeReport(dir / "X.wav", "txt", report), std::nullopt);
    EXPECT_EQ(contents(dir / "X.txt"), report);  // UTF-8 as is: no byte-order mark
    EXPECT_EQ(entries(dir.path()), (std::set<std::string>{"X.txt", "X.wav"}));
    EXPECT_EQ(reportPath("/m/take.2.wav", "pdf"), fs::path("/m/take.2.pdf"));
}

TEST(ReportFile, RefusedFolderIsAnErrorAndHarmsNothing) {
    test::ScratchDir dir;
    std::ofstream(dir / "X.wav") << "master";
    fs::permissions(dir.path(), fs::perms(0555));
    // Root passes permission checks; an unprivileged file-system identity on this thread does not.
    const bool root = geteuid() == 0;
    if (root) setfsuid(65534);
    const int probe = ::open((dir / "probe").c_str(), O_CREAT | O_WRONLY, 0600);
    const auto error = probe < 0 ? writeReport(dir / "X.wav", "txt", "report") : std::nullopt;
    if (root) setfsuid(0);
    if (probe >= 0) {
        ::close(probe);
        GTEST_SKIP() << "cannot give up the right to write everywhere";
    }
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, LoudnessError::Code::diskAccess);
    EXPECT_EQ(entries(dir.path()), std::set<std::string>{"X.wav"});
    EXPECT_EQ(contents(dir / "X.wav"), "master");
}

TEST(TextReport, CustomTargetStandsForTheNormWithItsBase) {
    ReportInputs in = sampleMaster();
    in.target = -21.5;
    in.after.integratedLUFS = -21.5;
    std::string text = makeTextReport(in);
    EXPECT_NE(text.find("\nCible personnalisée : −21.5 LUFS (base : -23 LUFS · TV Europe (EBU R128))\n"),
              std::string::npos)
        << text;
    EXPECT_EQ(text.find("Cible de sonie"), std::string::npos);

    // The ceiling alone moved off the norm's is a custom target too.
    in = sampleMaster();
    in.ceiling = -2.0;
    text = makeTextReport(in);
    EXPECT_NE(text.find("Cible personnalisée : −23.0 LUFS (base : -23 LUFS · TV Europe (EBU R128))"), std::string::npos)
        << text;
    EXPECT_NE(text.find("Plafond True Peak    : -2.0 dBTP"), std::string::npos);
}
