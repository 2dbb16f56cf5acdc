#include "model/MasterNames.h"

#include <charconv>
#include <filesystem>

#include "audio/NumberFormat.h"
#include "norms/Presets.h"

namespace velmora {

namespace {
std::string stemOf(std::string_view name) { return std::filesystem::path(name).stem().string(); }
}  // namespace

std::string targetForName(double targetLUFS) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, targetLUFS, std::chars_format::general, 6);
    return std::string(buffer, result.ptr);
}

std::string masterFileName(std::string_view sourceName, ProcessMode mode, double targetLUFS,
                           std::optional<double> sourceLRA, std::string_view extension) {
    std::string name = stemOf(sourceName) + (mode == ProcessMode::conform ? "_corrige_" : "_master_") +
                       targetForName(targetLUFS) + "LUFS";
    if (sourceLRA) name += "_LRA" + formatFixed(*sourceLRA, 0);
    return name + "." + std::string(extension);
}

std::string multiMasterFileName(std::string_view sourceName, int presetIndex, std::string_view extension) {
    return stemOf(sourceName) + "_master_" + presetTag(presetIndex) + "." + std::string(extension);
}

}  // namespace velmora
