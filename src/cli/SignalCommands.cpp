#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/Commands.h"
#include "cli/Progress.h"
#include "cli/Settings.h"
#include "measurement/FileAnalysis.h"
#include "norms/Presets.h"
#include "output/ABExcerpts.h"
#include "output/SignalGenerators.h"

namespace velmora::cli {

int runCalibrate(Args& args) {
    std::optional<std::string> out = args.option("-o");
    if (!out) out = args.option("--output");
    if (!out) throw UsageError("calibrate: -o FILE.wav is required");
    if (!args.positionals().empty()) throw UsageError("calibrate takes no input file");
    std::error_code ec;
    std::string destination = *out;
    if (std::filesystem::is_directory(destination, ec) || destination.ends_with('/'))
        destination = (std::filesystem::path(destination) / rllCalibrationFileName).string();
    auto written = saveRLLCalibration(destination);
    if (!written) {
        std::cout << "Échec enregistrement : " << written.error().message() << '\n';
        return 1;
    }
    std::cout << "Enregistré : " << std::filesystem::path(written->path).filename().string()
              << " · Bruit rose 500-2000 Hz mono à -23 LUFS, 30 s · 48 kHz / 24-bit\n";
    return 0;
}

int runAB(Args& args) {
    const auto measure = parseMeasureOptions(args);
    MasterParams params;
    if (auto path = args.option("--params")) params = readParamsFile(*path);
    BitDepth depth = BitDepth::int24;
    if (auto v = args.option("--bits")) depth = parseBits(*v);
    const auto files = args.positionals();
    if (files.size() != 1) throw UsageError("ab: exactly one FILE");
    const std::string& source = files.front();

    AnalysisSettings settings;
    settings.layout = measure.layout;
    settings.order = measure.order;
    ProgressBar bar(std::filesystem::path(source).filename().string());
    auto analysed = analyseFile(source, settings, [&](double f) { bar.update(0.5 * f); });
    bar.finish();
    if (!analysed || !std::isfinite(analysed->result.integratedLUFS)) {
        if (!analysed) std::cout << "Échec lecture : " << analysed.error().message() << '\n';
        std::cout << "Sélectionnez d'abord un fichier analysé.\n";
        return 1;
    }
    std::cout << "Génération des extraits A/B…\n";
    const Preset& norm = presetAt(measure.norm);
    ABRequest request;
    request.sourcePath = source;
    request.params = params;
    request.targetLUFS = norm.lufs;
    request.ceilingDB = norm.ceiling;
    request.depth = depth;
    if (analysed->channelCount == 6) request.layout = surround51Layout(measure.order);
    const FileProgramme programme(source, analysed->isVideo, std::size_t(analysed->channelCount), analysed->frameCount,
                                  analysed->sampleRate);
    auto made = generateABExcerpts(programme, analysed->weights, request);
    if (!made) {
        std::cout << "Échec de la génération des extraits.\n" << made.error().message() << '\n';
        return 1;
    }
    std::cout << "Extraits A/B créés ✓\n" << made->before << '\n' << made->after << '\n';
    return 0;
}

}  // namespace velmora::cli
