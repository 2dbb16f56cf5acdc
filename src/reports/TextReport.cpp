#include "reports/TextReport.h"

#include <cmath>
#include <ctime>
#include <limits>
#include <string_view>
#include <vector>

#include "measurement/DialogueAnalyzer.h"
#include "measurement/FileAnalysis.h"
#include "norms/PADCheck.h"
#include "output/MasterDelivery.h"
#include "reports/NormReference.h"
#include "reports/ReportFormat.h"

namespace velmora {

namespace {

using namespace reportformat;

const std::string rule(60, '=');

// A gain this small is a knob left at rest, not a correction worth reporting.
bool isSet(double gainDB) { return std::abs(gainDB) > 0.05; }

std::string joined(const std::vector<std::string>& items) {
    std::string out;
    for (const std::string& item : items) {
        if (!out.empty()) out += " · ";
        out += item;
    }
    return out;
}

std::string freq(double hz) { return formatFixed(hz, 0) + " Hz"; }
std::string gain(double db) { return formatSignedFixed(db, 1) + " dB"; }
// Appending rather than `"Q" + ...` avoids a false -Wrestrict from GCC 12 at -O3.
std::string q(double value) {
    std::string text("Q");
    text += formatOneDecimal(value);
    return text;
}

std::string equaliserSummary(const MasterParams& p) {
    if (!p.eqOn) return "désactivé";
    std::vector<std::string> items;
    if (p.hpfOn) items.push_back("HPF " + freq(p.hpfFreq));
    if (isSet(p.lsGain)) items.push_back("LF " + freq(p.lsFreq) + " " + gain(p.lsGain));
    if (isSet(p.b1Gain)) items.push_back("LMF " + freq(p.b1Freq) + " " + gain(p.b1Gain) + " " + q(p.b1Q));
    if (isSet(p.b2Gain)) items.push_back("HMF " + freq(p.b2Freq) + " " + gain(p.b2Gain) + " " + q(p.b2Q));
    if (isSet(p.hsGain)) items.push_back("HF " + freq(p.hsFreq) + " " + gain(p.hsGain));
    return items.empty() ? "actif (neutre)" : joined(items);
}

std::string compressorSummary(const MasterParams& p, double maxGR) {
    if (!p.compOn) return "désactivé";
    return joined({"seuil " + formatOneDecimal(p.compThreshold) + " dB", formatOneDecimal(p.compRatio) + ":1",
                   "att " + formatOneDecimal(p.compAttack) + " ms", "rel " + formatFixed(p.compRelease, 0) + " ms",
                   "makeup " + gain(p.compMakeup), "GR max " + formatOneDecimal(maxGR) + " dB"});
}

std::string tonalSummary(const MasterParams& p) {
    if (!p.teqOn) return "désactivé";
    std::vector<std::string> items;
    if (isSet(p.tLsGain)) items.push_back("Graves " + freq(p.tLsFreq) + " " + gain(p.tLsGain));
    if (isSet(p.tMidGain)) items.push_back("Médiums " + freq(p.tMidFreq) + " " + gain(p.tMidGain) + " " + q(p.tMidQ));
    if (isSet(p.tHsGain)) items.push_back("Aigus " + freq(p.tHsFreq) + " " + gain(p.tHsGain));
    return items.empty() ? "actif (neutre)" : joined(items);
}

std::string midSideSummary(const MasterParams& p) {
    // Gains this close to zero leave the image untouched, so the stage counts as off.
    if (!p.msOn || (std::abs(p.midGain) <= 0.01 && std::abs(p.sideGain) <= 0.01)) return "désactivé";
    return "Mid " + gain(p.midGain) + " · Side " + gain(p.sideGain);
}

class Lines {
public:
    void add(std::string_view line) {
        if (!text_.empty()) text_ += '\n';
        text_ += line;
    }
    // Colon in column 22, value from column 24.
    void field(std::string_view label, std::string_view value) {
        add(fitWidth(label, 21) + ": " + std::string(value));
    }
    void measure(std::string_view label, double before, double after, std::string_view unit) {
        field(label, orDash(before) + " " + fitWidth(unit, 8) + orDash(after) + " " + std::string(unit));
    }
    std::string take() { return std::move(text_); }

private:
    std::string text_;
};

}  // namespace

std::string reportDate(const ReportInputs& inputs) {
    if (!inputs.date.empty()) return inputs.date;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%d/%m/%Y %H:%M", &local);
    return text;
}

std::string makeTextReport(const ReportInputs& in) {
    const MasterParams& p = in.params;
    Lines r;
    r.add(rule);
    r.add("VELMORA — RAPPORT DE MASTERING");
    r.add(rule);
    r.field("Date", reportDate(in));
    r.field("Fichier source", in.sourceName + (in.sourceTruncated ? " (" + truncatedText(in.durationSeconds) + ")" : ""));
    r.field("Fichier exporté", in.exportedName);
    r.add("");
    r.add("RÉGLAGES");
    r.field("Canaux", std::to_string(in.channelCount));
    r.field("Fréquence", formatOneDecimal(in.sampleRate / 1000.0) + " kHz");
    r.field("Profondeur", std::to_string(in.bitDepth) + (in.isFloat ? " bits flottant" : " bits"));
    const Preset& norm = presetAt(in.presetIndex);
    // A target or ceiling off the norm's is the client's own: the norm is named as its base only.
    if (isCustomTarget(norm, in.target, in.ceiling)) r.add(customTargetLine(in.target, "LUFS", norm.label, false));
    else r.field("Cible de sonie", orDash(in.target) + " LUFS");
    r.field("Plafond True Peak", orDash(in.ceiling) + " dBTP");
    r.field("Gain de conformité", formatSignedOneDecimal(in.gainDB) + " dB");
    if (in.album) {
        r.field("Album", "sonie " + formatOneDecimal(in.album->loudnessLUFS) + " LUFS, gain " +
                             formatSignedOneDecimal(in.album->gainDB) + " dB pour tous les titres");
        if (in.album->loweredDB > 0)
            r.field("Gain d'album abaissé", formatOneDecimal(in.album->loweredDB) +
                                                " dB (un titre aurait demandé plus de 12 dB de limitation)");
        r.field("Sonie du titre", formatOneDecimal(in.before.integratedLUFS) + " → " +
                                      formatOneDecimal(in.after.integratedLUFS) + " LUFS");
    }
    r.add("");
    r.add("CHAÎNE MASTER");
    r.field("Égaliseur", equaliserSummary(p));
    r.field("Bus compresseur", compressorSummary(p, in.maxGR));
    r.field("EQ tonal", tonalSummary(p));
    r.field("Réduction de LRA", p.lraOn ? "cible " + formatOneDecimal(p.lraTarget) + " LU" : "désactivée");
    r.field("Largeur Mid/Side", midSideSummary(p));
    r.field("Protection auto",
            p.autoProtectComp ? "activée (seuil " + orDash(p.autoProtectThresholdDB) + " dB)" : "désactivée");
    r.add("");
    r.add("MESURES (ITU-R BS.1770-4 / EBU R128)");
    r.add(std::string(23, ' ') + "AVANT" + std::string(8, ' ') + "APRÈS");

    const LoudnessResult& b = in.before;
    const LoudnessResult& a = in.after;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    r.measure("Sonie intégrée (I)", b.integratedLUFS, a.integratedLUFS, "LUFS");
    r.measure("Plage de sonie (LRA)", b.loudnessRange.value_or(nan), a.loudnessRange.value_or(nan), "LU");
    r.measure("Momentanée max (M)", b.momentaryMax, a.momentaryMax, "LUFS");
    r.measure("Court-terme max (S)", b.shortTermMax, a.shortTermMax, "LUFS");
    r.measure("Crête vraie", b.truePeakDB, a.truePeakDB, "dBTP");
    r.measure("PLR (TP - I)", difference(b.truePeakDB, b.integratedLUFS), difference(a.truePeakDB, a.integratedLUFS),
              "LU");
    r.measure("PSR (TP - S max)", difference(b.truePeakDB, b.shortTermMax), difference(a.truePeakDB, a.shortTermMax),
              "LU");
    if (b.dialogueShare) r.add(dialogueShareText(*b.dialogueShare));
    if (in.targetMissedLUFS) r.add(targetMissedText(*in.targetMissedLUFS));

    if (in.durationSeconds > 0) {
        const PADCheck pad =
            checkPAD(a.loudnessRange, a.integratedLUFS, a.truePeakDB, a.shortTermMax, in.durationSeconds,
                     dialogueExcursion(a.dialogueShortTermMin, a.dialogueShortTermMax));
        r.add("");
        r.add(std::string("VÉRIFICATION PAD · CST-RT-040 — ") + (pad.isShort ? "Programme court" : "Programme long"));
        r.add("Verdict : " + std::string(padVerdict(pad)));
        for (const PADCheck::Line& line : pad.lines)
            r.add(std::string(8, ' ') + (line.pass ? "[OK] " : "[!!] ") + fitWidth(line.label, 26) + " " + line.value +
                  "  (" + line.target + ")");
        r.add("Note : mesures sur le programme entier. L'excursion des dialogues seuls");
        r.add(pad.checksDialogue ? "(-30 a -16 LUFS court terme) est verifiee sur les passages de parole detectes."
                                 : "(-30 a -16 LUFS court terme) n'est pas verifiee ici (detection dediee requise).");
    }
    if (in.sourceEvents) {
        r.add("");
        r.add("ÉVÉNEMENTS DE LA SOURCE (" + std::to_string(in.sourceEvents->size()) + ")");
        if (in.sourceEvents->empty()) r.add("Aucun dépassement ni écrêtage.");
        for (const LoudnessEvent& e : *in.sourceEvents) r.add(eventLine(e, in.channelLabels));
    }
    r.add(rule);
    r.add("Généré par Velmora");
    return r.take();
}

}  // namespace velmora
