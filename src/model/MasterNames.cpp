#include "model/MasterNames.h"

#include <QStringDecoder>
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

QString displayName(const std::string& bytes) {
    QStringDecoder utf8(QStringDecoder::Utf8);
    const QString decoded = utf8.decode(QByteArrayView(bytes.data(), qsizetype(bytes.size())));
    return utf8.hasError() ? QString::fromLatin1(bytes.data(), qsizetype(bytes.size())) : decoded;
}

}  // namespace velmora
