#include "reports/NormReference.h"

#include <array>
#include <cmath>
#include <utility>

#include "norms/Diagnosis.h"

namespace velmora {

NormVerdict normVerdict(const LoudnessResult& after, const Preset& norm, std::optional<double> targetMissedLUFS) {
    return normVerdict(after, norm, norm.lufs, norm.ceiling, targetMissedLUFS);
}

NormVerdict normVerdict(const LoudnessResult& after, const Preset& norm, double targetLUFS, double ceilingDB,
                        std::optional<double> targetMissedLUFS) {
    const double i = after.integratedLUFS;
    const double tp = after.truePeakDB;
    const bool integratedOK = !targetMissedLUFS && std::isfinite(i) &&
                              std::abs(i - targetLUFS) <= norm.toleranceLU + displayRoundingMargin;
    const bool truePeakOK = std::isfinite(tp) && tp <= ceilingDB + displayRoundingMargin;
    if (integratedOK && truePeakOK) return {true, VerdictReason::onTarget};
    if (truePeakOK) return {false, VerdictReason::loudnessOff};
    if (integratedOK) return {false, VerdictReason::peakOver};
    return {false, VerdictReason::both};
}

bool isCustomTarget(const Preset& norm, double targetLUFS, double ceilingDB) {
    // The controls move in 0.1 dB steps at the finest: anything closer is the norm's own value
    // read back through a setting.
    constexpr double sameValue = 0.005;
    return std::abs(targetLUFS - norm.lufs) > sameValue || std::abs(ceilingDB - norm.ceiling) > sameValue;
}

namespace {

// First match wins; CST has no per-document address that has stayed put, so both of its
// recommendations lead to its home page.
constexpr std::array<std::pair<std::string_view, std::string_view>, 13> references{{
    {"EBU R128", "https://tech.ebu.ch/publications/r128"},
    {"RT-040", "https://www.cst.fr/"},
    {"RT-017", "https://www.cst.fr/"},
    {"CALM Act",
     "https://www.atsc.org/atsc-documents/"
     "a85-techniques-for-establishing-and-maintaining-audio-loudness-for-digital-television/"},
    {"ATSC",
     "https://www.atsc.org/atsc-documents/"
     "a85-techniques-for-establishing-and-maintaining-audio-loudness-for-digital-television/"},
    {"ARIB", "https://www.arib.or.jp/english/std_tr/broadcasting/desc/tr-b32.html"},
    {"Netflix", "https://partnerhelp.netflixstudios.com/hc/en-us/articles/360001794307"},
    {"OP-59",
     "https://www.freetv.com.au/wp-content/uploads/2019/08/"
     "OP-59-Measurement-and-Managemnt-of-Loudness-for-TV-Broadcasting-Issue-4-October-2018.pdf"},
    {"CRTC", "https://crtc.gc.ca/eng/archive/2012/2012-273.htm"},
    {"AGCOM", "https://www.agcom.it/"},
    {"Apple", "https://support.apple.com/en-us/109331"},
    {"Spotify", "https://artists.spotify.com/en/help/article/loudness-normalization"},
    {"YouTube", "https://support.google.com/youtube/answer/1722171"},
}};

}  // namespace

std::optional<std::string_view> officialReferenceURL(std::string_view normLabel) {
    for (const auto& [name, url] : references)
        if (normLabel.find(name) != std::string_view::npos) return url;
    return std::nullopt;
}

}  // namespace velmora
