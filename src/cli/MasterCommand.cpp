#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/Commands.h"
#include "cli/MeasurementTable.h"
#include "cli/Progress.h"
#include "cli/Settings.h"
#include "cli/Text.h"
#include "measurement/FileAnalysis.h"
#include "model/MasterNames.h"
#include "audio/NumberFormat.h"
#include "norms/Presets.h"
#include "output/Interruption.h"
#include "output/MasterDelivery.h"

namespace velmora::cli {

namespace {

// "<name>_master_-23LUFS.wav" when -o names a folder; the extension follows the format.
std::string destinationFor(const std::string& source, const MasterOptions& o, FileFormat format) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const bool folder = fs::is_directory(o.output, ec) || o.output.ends_with('/');
    if (!folder) return o.output;
    // "-o out/" names a folder to deliver into, as batch does: made when missing.
    fs::create_directories(o.output, ec);
    return (fs::path(o.output) / masterFileName(fs::path(source).filename().string(), o.mode, o.targetLUFS, std::nullopt,
                                                extension(format)))
        .string();
}

}  // namespace

int runMaster(Args& args) {
    const auto o = parseMasterOptions(args, "master");
    const auto files = args.positionals();
    if (files.size() != 1) throw UsageError("master: exactly one FILE");
    const std::string& source = files.front();
    const std::string unit(rawValue(presetAt(o.measure.norm).unit));

    AnalysisSettings settings;
    settings.layout = o.measure.layout;
    settings.order = o.measure.order;
    settings.dialogueGating = effectiveGatingMode(o.measure.gating, presetAt(o.measure.norm)) == GatingMode::dialog;

    // A named file's container is its extension's: a --format that says otherwise is a mistake.
    std::error_code ec;  // a name the file system cannot hold is said when the master is written
    const bool namesFolder = o.output.ends_with('/') || std::filesystem::is_directory(o.output, ec);
    if (!namesFolder && o.formatGiven && formatForPath(o.output) != o.format)
        throw UsageError("--format " + std::string(o.format == FileFormat::wav ? "wav" : "aiff") +
                         " contradicts -o " + o.output + " (.aif/.aiff is AIFF, any other extension WAV)");
    std::cout << "== " << source << '\n';
    ProgressBar bar(std::filesystem::path(source).filename().string());
    auto analysed = analyseFile(source, settings, [&](double f) { bar.update(0.2 * f); });
    if (!analysed) {
        bar.finish();
        std::cout << "Échec lecture : " << analysed.error().message() << '\n';
        return 1;
    }
    std::cout << analysed->infoLine() << '\n';

    const FileFormat format = namesFolder ? o.format : formatForPath(o.output);
    DeliveryRequest request;
    request.targetLUFS = o.targetLUFS;
    request.ceilingDB = o.ceilingDB;
    request.params = o.params;
    request.write.destination = destinationFor(source, o, format);
    request.write.format = format;
    request.write.depth = o.depth;
    request.write.outputRate = o.outputRate;
    request.write.sourcePath = source;
    request.write.processing = "norm " + presetTag(o.measure.norm);
    request.write.layout =
        masterLayout(std::size_t(analysed->channelCount), analysed->declaredPositions, o.measure.order);
    // Measured with the standard gating and these weights while decoding: no second measurement.
    if (!analysed->result.programmeLUFS) request.sourceIntegratedLUFS = analysed->result.integratedLUFS;
    request.sourceTruePeakDB = analysed->result.truePeakDB;

    // The master reads the file again rather than holding it: a film costs a few blocks.
    const FileProgramme programme(source, analysed->isVideo, std::size_t(analysed->channelCount), analysed->frameCount,
                                  analysed->sampleRate);
    stopOnInterruptSignals();  // Ctrl-C ends the write, which leaves nothing, then the command
    auto delivered = deliverMaster(programme, analysed->weights, request, [&](double f) { bar.update(0.2 + 0.8 * f); });
    bar.finish();
    if (!delivered) {
        printMeasurementTable(std::cout, {&analysed->result}, unit, {"AVANT"});
        std::cout << "Échec enregistrement : " << delivered.error().message() << '\n';
        return interruptRequested() ? 128 + interruptSignal() : 1;
    }
    const auto& d = *delivered;
    printMeasurementTable(std::cout, {&analysed->result, &d.after}, unit, {"AVANT", "APRÈS"});
    std::cout << "Gain de conformité   : " << formatSignedOneDecimal(d.gainDB) << " dB";
    if (d.protectionAppliedDB > 0) std::cout << " · comp. auto -" << formatOneDecimal(d.protectionAppliedDB) << " dB";
    if (o.params.compOn) std::cout << " · GR max " << formatOneDecimal(d.maxGR) << " dB";
    std::cout << "\nCrête vraie écrite   : " << oneDecimalOrDash(d.writtenTruePeakDB) << " dBTP (plafond "
              << formatOneDecimal(o.ceilingDB) << " dBTP)\n";
    std::cout << "Enregistré : " << std::filesystem::path(d.written.path).filename().string() << " · "
              << oneDecimalOrDash(d.after.integratedLUFS) << " LUFS\n";
    if (d.targetMissedLUFS) std::cout << targetMissedText(*d.targetMissedLUFS) << '\n';
    return 0;
}

}  // namespace velmora::cli
