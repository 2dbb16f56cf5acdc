#include "output/OutputFormat.h"

#include <bit>
#include <cmath>
#include <filesystem>

#include "audio/PlanarAudio.h"

namespace velmora {

std::string_view rawValue(BitDepth depth) {
    switch (depth) {
    case BitDepth::int16: return "16 bits";
    case BitDepth::int24: return "24 bits";
    case BitDepth::float32: return "32 bits flottant";
    }
    return {};
}

std::string_view rawValue(FileFormat format) { return format == FileFormat::aiff ? "AIFF" : "WAV"; }

std::optional<BitDepth> bitDepthFromRaw(std::string_view raw) {
    for (BitDepth d : allBitDepths)
        if (rawValue(d) == raw) return d;
    return std::nullopt;
}

std::optional<FileFormat> fileFormatFromRaw(std::string_view raw) {
    for (FileFormat f : allFileFormats)
        if (rawValue(f) == raw) return f;
    return std::nullopt;
}

int bits(BitDepth depth) { return depth == BitDepth::int16 ? 16 : depth == BitDepth::int24 ? 24 : 32; }
bool isFloat(BitDepth depth) { return depth == BitDepth::float32; }
std::string_view extension(FileFormat format) { return format == FileFormat::aiff ? "aif" : "wav"; }

FileFormat formatForPath(std::string_view path) {
    std::string ext = std::filesystem::path(path).extension().string();
    for (char& c : ext)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return ext.rfind(".aif", 0) == 0 ? FileFormat::aiff : FileFormat::wav;
}

double resolveOutputRate(double outputRate, double sourceRate) { return outputRate != 0.0 ? outputRate : sourceRate; }

using namespace speaker;

SpeakerLayout monoLayout() { return {frontCenter}; }
SpeakerLayout stereoLayout() { return {frontLeft, frontRight}; }

SpeakerLayout surround51Layout(ChannelOrder order) {
    constexpr std::uint64_t L = frontLeft, R = frontRight, C = frontCenter, LFE = lowFrequency, Ls = backLeft,
                            Rs = backRight;
    switch (order) {
    case ChannelOrder::smpte: return {L, R, C, LFE, Ls, Rs};
    case ChannelOrder::film: return {L, C, R, Ls, Rs, LFE};
    case ChannelOrder::itu: return {L, R, Ls, Rs, C, LFE};
    case ChannelOrder::aac: return {C, L, R, Ls, Rs, LFE};
    }
    return {};
}

SpeakerLayout surround71Layout() {
    return {frontLeft, frontRight, frontCenter, lowFrequency, sideLeft, sideRight, backLeft, backRight};
}

std::optional<SpeakerLayout> defaultLayout(std::size_t channelCount) {
    switch (channelCount) {
    case 1: return monoLayout();
    case 2: return stereoLayout();
    case 6: return surround51Layout(ChannelOrder::smpte);
    case 8: return surround71Layout();
    default: return std::nullopt;
    }
}

std::optional<SpeakerLayout> masterLayout(std::size_t channelCount, const std::vector<std::uint64_t>& declaredPositions,
                                          ChannelOrder order) {
    // WAVE_FORMAT_EXTENSIBLE names eighteen speakers, bits 0 to 17.
    constexpr std::uint64_t maskable = (std::uint64_t{1} << 18) - 1;
    std::uint64_t seen = 0;
    bool usable = channelCount > 0 && declaredPositions.size() == channelCount;
    for (std::uint64_t s : declaredPositions) {
        usable = usable && std::has_single_bit(s) && (s & maskable) && !(seen & s);
        seen |= s;
    }
    if (usable) return declaredPositions;
    if (channelCount == 6) return surround51Layout(order);
    return std::nullopt;
}

}  // namespace velmora
