#include <cmath>
#include <cstdio>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "audio/ChannelLabels.h"
#include "cli/AnalyseDetail.h"
#include "cli/Commands.h"
#include "model/FileItem.h"
#include "cli/BextInfo.h"
#include "cli/Json.h"
#include "cli/MeasurementTable.h"
#include "cli/Progress.h"
#include "cli/Settings.h"
#include "cli/Text.h"
#include "measurement/DialogueAnalyzer.h"
#include "measurement/FileAnalysis.h"
#include "norms/Diagnosis.h"
#include "norms/NormEvents.h"
#include "norms/PADCheck.h"
#include "norms/Presets.h"

namespace velmora::cli {

namespace {

struct Outcome {
    std::string file;
    std::string status;  // "Prêt", "Non mesurable" or "Échec lecture"
    std::optional<std::string> error;
    std::optional<FileAnalysis> analysis;
    std::vector<NormCheck> norms;
    std::optional<PADCheck> pad;
    std::vector<std::string> channelLabels;
    EventList events;
    bool ok() const { return !error; }
};

Outcome analyseOne(const std::string& path, const MeasureOptions& options, std::optional<double> momentaryMax) {
    Outcome o;
    o.file = path;
    const Preset& norm = presetAt(options.norm);
    AnalysisSettings settings;
    settings.layout = options.layout;
    settings.order = options.order;
    settings.dialogueGating = effectiveGatingMode(options.gating, norm) == GatingMode::dialog;

    ProgressBar bar(std::filesystem::path(path).filename().string());
    auto analysed = analyseFile(path, settings, [&](double f) { bar.update(f); });
    bar.finish();
    if (!analysed) {
        o.status = statusText(ItemStatus::readFailed).toStdString();
        o.error = analysed.error().message();
        return o;
    }
    o.analysis = std::move(*analysed);
    const auto& r = o.analysis->result;
    o.status = statusText(ItemStatus::ready).toStdString();
    if (auto reason = o.analysis->unmeasurableReason()) {
        o.status = statusText(ItemStatus::unmeasurable).toStdString();
        o.error = *reason;
    }
    o.norms = diagnose(presets(), r.integratedLUFS, r.truePeakDB);
    o.pad = checkPAD(r.loudnessRange, r.integratedLUFS, r.truePeakDB, r.shortTermMax, o.analysis->durationSeconds(),
                     dialogueExcursion(r.dialogueShortTermMin, r.dialogueShortTermMax));
    o.channelLabels = channelLabels(o.analysis->channelCount, options.layout, options.order, o.analysis->declaredPositions);
    o.events = detectEvents(o.analysis->detail, eventLimitsFor(norm, momentaryMax));
    return o;
}

void printHuman(const Outcome& o, const MeasureOptions& options) {
    std::cout << "== " << o.file << '\n';
    if (!o.analysis) {
        std::cout << o.status << " : " << *o.error << "\n\n";
        return;
    }
    const auto& a = *o.analysis;
    const auto& r = a.result;
    const std::string unit(rawValue(presetAt(options.norm).unit));
    std::cout << a.infoLine() << '\n';
    if (const auto claimed = bextLoudnessLine(o.file)) std::cout << *claimed << '\n';
    if (o.error) std::cout << o.status << " : " << *o.error << '\n';

    printMeasurementTable(std::cout, {&r}, unit);
    if (r.dialogueShare) std::cout << dialogueShareText(*r.dialogueShare) << '\n';
    printDetail(std::cout, a, o.channelLabels, o.events);

    std::cout << "\nDIAGNOSTIC MULTI-NORME · CONFORMITÉ INSTANTANÉE " << diagnosisBadge(o.norms) << '\n'
              << diagnosisSummary(o.norms) << '\n';
    for (const auto& n : o.norms) {
        std::cout << "  " << (n.conform ? "✓" : "✗") << ' ' << padRight(n.presetLabel, 40) << ' '
                  << padLeft(deviationText(n), 9) << (n.integratedOK ? "  " : " !") << "  TP "
                  << (n.truePeakOK ? "✓" : "⚠") << '\n';
    }
    const auto& pad = *o.pad;
    std::cout << "\nVÉRIFICATION PAD · CST-RT-040 — " << (pad.isShort ? "Programme court" : "Programme long") << '\n'
              << "Verdict : " << padVerdict(pad) << '\n';
    for (const auto& line : pad.lines)
        std::cout << "  " << (line.pass ? "[OK] " : "[!!] ") << padRight(line.label, 26) << ' ' << line.value << "  ("
                  << line.target << ")\n";
    if (a.inversion) std::cout << "\n⚠︎ " << a.inversion->text() << '\n';
    if (auto w = layoutMismatchWarning(options.layout, a.channelCount)) std::cout << '\n' << *w << '\n';
    std::cout << '\n';
}

void printJson(const Outcome& o) {
    JsonWriter j;
    j.beginObject();
    j.field("file", o.file).field("status", o.status);
    j.key("info");
    if (o.analysis) j.value(o.analysis->infoLine());
    else j.null();
    j.key("error");
    if (o.error) j.value(*o.error);
    else j.null();
    if (o.analysis) {
        const auto& a = *o.analysis;
        const auto& r = a.result;
        j.field("channels", a.channelCount).field("sampleRate", a.sampleRate).field("durationSeconds", a.durationSeconds());
        j.field("truncated", a.truncated);
        j.field("integratedLUFS", r.integratedLUFS).field("loudnessRange", r.loudnessRange);
        j.field("truePeakDB", r.truePeakDB).field("momentaryMax", r.momentaryMax).field("shortTermMax", r.shortTermMax);
        j.field("programmeLUFS", r.programmeLUFS).field("dialogueShare", r.dialogueShare);
        writeDetailJson(j, a, o.channelLabels, o.events);
        j.field("plr", difference(r.truePeakDB, r.integratedLUFS)).field("psr", difference(r.truePeakDB, r.shortTermMax));
        j.key("inversionWarning");
        if (a.inversion) {
            j.beginObject()
                .field("suspectedCenterIndex", a.inversion->suspectedCenterIndex)
                .field("suspectedLFEIndex", a.inversion->suspectedLFEIndex)
                .field("centerSubRatio", a.inversion->centerSubRatio)
                .field("lfeSubRatio", a.inversion->lfeSubRatio)
                .field("text", a.inversion->text())
                .endObject();
        } else {
            j.null();
        }
    } else {
        for (const char* k : {"channels", "sampleRate", "durationSeconds", "truncated", "integratedLUFS", "loudnessRange",
                              "truePeakDB", "momentaryMax", "shortTermMax", "programmeLUFS", "dialogueShare", "lraLow",
                              "lraHigh", "channelsDetail", "events", "plr", "psr", "inversionWarning"})
            j.key(k).null();
    }
    writeBextLoudness(j, o.file);
    j.key("norms").beginArray();
    for (const auto& n : o.norms)
        j.beginObject()
            .field("index", n.id)
            .field("label", n.presetLabel)
            .field("integratedOK", n.integratedOK)
            .field("truePeakOK", n.truePeakOK)
            .field("conform", n.conform)
            .endObject();
    j.endArray();
    j.key("pad");
    if (o.pad) {
        j.beginObject().field("isShort", o.pad->isShort).field("verdict", padVerdict(*o.pad)).field("conform", o.pad->conforms());
        j.key("lines").beginArray();
        for (const auto& l : o.pad->lines)
            j.beginObject().field("label", l.label).field("value", l.value).field("target", l.target).field("pass", l.pass).endObject();
        j.endArray().endObject();
    } else {
        j.null();
    }
    j.endObject();
    std::cout << j.str() << '\n';
}

}  // namespace

int runAnalyse(Args& args) {
    const bool json = args.flag("--json");
    const auto options = parseMeasureOptions(args);
    const auto timeline = args.option("--timeline");
    std::optional<double> momentaryMax;
    if (const auto m = args.option("--momentary-max")) momentaryMax = parseDouble(*m, "--momentary-max");
    const auto files = args.positionals();
    if (files.empty()) throw UsageError("analyse: no file given");
    if (timeline && files.size() != 1) throw UsageError("analyse: --timeline takes exactly one file");
    int status = 0;
    for (const auto& f : files) {
        const auto outcome = analyseOne(f, options, momentaryMax);
        if (timeline && outcome.analysis) {
            std::ofstream csv(*timeline, std::ios::binary | std::ios::trunc);
            if (csv) writeTimelineCsv(csv, outcome.analysis->detail.history);
            if (!csv || !csv.flush()) {
                std::cerr << "Impossible d'écrire la chronologie « " << *timeline << " » : " << std::strerror(errno)
                          << ".\n";
                status = 1;
            }
        }
        if (json) printJson(outcome);
        else printHuman(outcome, options);
        std::cout.flush();
        if (!outcome.ok()) status = 1;
    }
    return status;
}

}  // namespace velmora::cli
