#include "output/ABExcerpts.h"

#include <cmath>
#include <filesystem>

#include "mastering/Limiter.h"
#include "mastering/ProgrammeLoudness.h"
#include "mastering/Render.h"
#include "output/Excerpt.h"

namespace velmora {

namespace {
std::string besideSource(const std::string& sourcePath, const char* suffix) {
    const std::filesystem::path p(sourcePath);
    return (p.parent_path() / (p.stem().string() + suffix)).string();
}
}  // namespace

std::string abBeforePath(const std::string& sourcePath) { return besideSource(sourcePath, "_AB_AVANT.wav"); }
std::string abAfterPath(const std::string& sourcePath) { return besideSource(sourcePath, "_AB_APRES.wav"); }

Expected<ABFiles> generateABExcerpts(const Channels& source, double fs, std::span<const double> weights,
                                     const ABRequest& request) {
    ABFiles files{abBeforePath(request.sourcePath), abAfterPath(request.sourcePath)};
    WriteRequest write;
    write.format = FileFormat::wav;
    write.depth = request.depth;
    write.layout = request.layout;
    write.sourcePath = request.sourcePath;

    Channels cut = excerpt(source, fs);
    write.destination = files.before;
    if (auto written = writeMaster(cut, fs, write); !written) return written.error();

    auto rendered = renderMaster(std::move(cut), request.params, fs, weights);
    Channels after = std::move(rendered.channels);
    const double integrated = measureProgramme(after, fs, weights, false).integratedLUFS;
    if (std::isfinite(integrated))
        limitToCeilingInPlace(after, fs, std::pow(10.0, (request.targetLUFS - integrated) / 20.0), request.ceilingDB);
    write.destination = files.after;
    if (auto written = writeMaster(after, fs, write); !written) return written.error();
    return files;
}

}  // namespace velmora

namespace velmora {

Expected<ABFiles> generateABExcerpts(const Programme& source, std::span<const double> weights, const ABRequest& request) {
    auto cut = excerpt(source);
    if (!cut) return cut.error();
    return generateABExcerpts(*cut, source.sampleRate(), weights, request);
}

}  // namespace velmora
