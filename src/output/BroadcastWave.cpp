#include "output/BroadcastWave.h"

#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <ctime>
#include <memory>

#include "audio/NumberFormat.h"

namespace velmora {

namespace {

constexpr std::size_t descriptionBytes = 256, originatorBytes = 32, referenceBytes = 32, dateBytes = 10, timeBytes = 8;
constexpr std::size_t fixedBytes = 602;  // everything before the coding history
constexpr std::int16_t unsetLoudness = 0x7FFF;

std::string fixedText(const char* field, std::size_t size) { return {field, strnlen(field, size)}; }

std::optional<double> loudnessField(std::int16_t stored) {
    if (stored == unsetLoudness) return std::nullopt;
    return stored / 100.0;
}

std::int16_t storedLoudness(const std::optional<double>& value) {
    if (!value || !std::isfinite(*value)) return unsetLoudness;
    return std::int16_t(std::clamp(std::lround(*value * 100.0), -32768L, 32766L));
}

void putText(std::vector<unsigned char>& out, const std::string& text, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) out.push_back(i < text.size() ? static_cast<unsigned char>(text[i]) : 0);
}

void putLE(std::vector<unsigned char>& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

std::uint64_t getLE(const std::vector<unsigned char>& in, std::size_t at, int bytes) {
    std::uint64_t v = 0;
    for (int i = bytes - 1; i >= 0; --i) v = (v << 8) | in[at + std::size_t(i)];
    return v;
}

std::string localStamp(const char* format, std::time_t now) {
    std::tm parts{};
    localtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), format, &parts);
    return text.data();
}

using SndFile = std::unique_ptr<SNDFILE, int (*)(SNDFILE*)>;

std::vector<RawChunk> chunksNamed(SNDFILE* file, const char* id) {
    std::vector<RawChunk> found;
    SF_CHUNK_INFO wanted{};
    std::strncpy(wanted.id, id, sizeof wanted.id - 1);
    wanted.id_size = unsigned(std::strlen(id));
    for (SF_CHUNK_ITERATOR* it = sf_get_chunk_iterator(file, &wanted); it; it = sf_next_chunk_iterator(it)) {
        SF_CHUNK_INFO chunk{};
        if (sf_get_chunk_size(it, &chunk) != SF_ERR_NO_ERROR || chunk.datalen == 0) continue;
        RawChunk raw{id, std::vector<unsigned char>(chunk.datalen)};
        chunk.data = raw.data.data();
        if (sf_get_chunk_data(it, &chunk) != SF_ERR_NO_ERROR) continue;
        raw.data.resize(chunk.datalen);
        found.push_back(std::move(raw));
    }
    return found;
}

}  // namespace

SourceMetadata readSourceMetadata(const std::string& path) {
    SourceMetadata metadata;
    SF_INFO info{};
    SndFile file(sf_open(path.c_str(), SFM_READ, &info), &sf_close);
    if (!file) return metadata;
    const int major = info.format & SF_FORMAT_TYPEMASK;
    if (major != SF_FORMAT_WAV && major != SF_FORMAT_WAVEX && major != SF_FORMAT_RF64) return metadata;

    // The coding history of a long-lived file grows with every process it went through.
    using BroadcastInfo = SF_BROADCAST_INFO_VAR(16384);
    auto bext = std::make_unique<BroadcastInfo>();
    if (sf_command(file.get(), SFC_GET_BROADCAST_INFO, bext.get(), sizeof(BroadcastInfo)) == SF_TRUE) {
        BextFields f;
        f.description = fixedText(bext->description, descriptionBytes);
        f.originator = fixedText(bext->originator, originatorBytes);
        f.originatorReference = fixedText(bext->originator_reference, referenceBytes);
        f.originationDate = fixedText(bext->origination_date, dateBytes);
        f.originationTime = fixedText(bext->origination_time, timeBytes);
        f.timeReference = (std::uint64_t(bext->time_reference_high) << 32) | bext->time_reference_low;
        f.version = bext->version;
        if (f.version >= 2) {
            f.loudness.integratedLUFS = loudnessField(bext->loudness_value);
            f.loudness.loudnessRange = loudnessField(bext->loudness_range);
            f.loudness.maxTruePeakDB = loudnessField(bext->max_true_peak_level);
            f.loudness.maxMomentaryLUFS = loudnessField(bext->max_momentary_loudness);
            f.loudness.maxShortTermLUFS = loudnessField(bext->max_shortterm_loudness);
        }
        f.codingHistory = fixedText(bext->coding_history, std::min<std::size_t>(bext->coding_history_size, 16384));
        metadata.bext = std::move(f);
    }
    for (const char* id : {"iXML", "axml"})
        for (auto& chunk : chunksNamed(file.get(), id)) metadata.chunks.push_back(std::move(chunk));
    return metadata;
}

std::string codingHistoryLine(double fileRate, int bits, bool floatSamples, std::size_t channels,
                              const std::string& processing) {
    std::string mode;
    switch (channels) {
    case 1: mode = "mono"; break;
    case 2: mode = "stereo"; break;
    case 6: mode = "5.1"; break;
    case 8: mode = "7.1"; break;
    default: mode = std::to_string(channels) + "ch";
    }
    std::string line = "A=" + std::string(floatSamples ? "PCM_FLOAT" : "PCM") + ",F=" + std::to_string(std::lround(fileRate)) +
                       ",W=" + std::to_string(bits) + ",M=" + mode + ",T=Velmora " VELMORA_VERSION;
    if (!processing.empty()) line += "; " + processing;
    return line + "\r\n";
}

BextFields masterBext(const MasterBextInput& input) {
    BextFields f;
    if (input.source && input.source->bext) f = *input.source->bext;
    const std::time_t now = std::time(nullptr);
    if (f.description.empty()) f.description = input.sourceName.substr(0, descriptionBytes);
    if (f.originator.empty()) f.originator = "Velmora";
    if (f.originationDate.empty() || f.originationTime.empty()) {
        f.originationDate = localStamp("%Y-%m-%d", now);
        f.originationTime = localStamp("%H:%M:%S", now);
    }
    // The same instant of the timeline, counted at the master's rate.
    if (input.sourceRate > 0 && input.fileRate > 0 && std::fabs(input.sourceRate - input.fileRate) >= 0.5)
        f.timeReference = std::uint64_t(std::llround(double(f.timeReference) * input.fileRate / input.sourceRate));
    f.version = 2;
    f.loudness = {};
    if (!f.codingHistory.empty() && !f.codingHistory.ends_with("\r\n")) {
        if (f.codingHistory.ends_with('\n')) f.codingHistory.pop_back();
        f.codingHistory += "\r\n";
    }
    f.codingHistory += codingHistoryLine(input.fileRate, input.bits, input.floatSamples, input.channels, input.processing);
    return f;
}

std::vector<unsigned char> bextChunkData(const BextFields& f) {
    std::vector<unsigned char> out;
    out.reserve(fixedBytes + f.codingHistory.size() + 1);
    putText(out, f.description, descriptionBytes);
    putText(out, f.originator, originatorBytes);
    putText(out, f.originatorReference, referenceBytes);
    putText(out, f.originationDate, dateBytes);
    putText(out, f.originationTime, timeBytes);
    putLE(out, f.timeReference & 0xFFFFFFFFu, 4);
    putLE(out, f.timeReference >> 32, 4);
    putLE(out, std::uint64_t(f.version), 2);
    out.insert(out.end(), 64, 0);  // no UMID
    for (const auto& v : {f.loudness.integratedLUFS, f.loudness.loudnessRange, f.loudness.maxTruePeakDB,
                          f.loudness.maxMomentaryLUFS, f.loudness.maxShortTermLUFS})
        putLE(out, std::uint16_t(storedLoudness(v)), 2);
    out.insert(out.end(), fixedBytes - out.size(), 0);  // reserved
    out.insert(out.end(), f.codingHistory.begin(), f.codingHistory.end());
    // Chunks keep an even size; libsndfile rounds the ones it is handed up to four bytes anyway.
    while (out.size() % 4) out.push_back(0);
    return out;
}

BextFields parseBextChunk(const std::vector<unsigned char>& data) {
    BextFields f;
    if (data.size() < fixedBytes) return f;
    const char* text = reinterpret_cast<const char*>(data.data());
    std::size_t at = 0;
    f.description = fixedText(text + at, descriptionBytes), at += descriptionBytes;
    f.originator = fixedText(text + at, originatorBytes), at += originatorBytes;
    f.originatorReference = fixedText(text + at, referenceBytes), at += referenceBytes;
    f.originationDate = fixedText(text + at, dateBytes), at += dateBytes;
    f.originationTime = fixedText(text + at, timeBytes), at += timeBytes;
    f.timeReference = getLE(data, at, 4) | (getLE(data, at + 4, 4) << 32);
    f.version = int(getLE(data, at + 8, 2));
    const auto field = [&](std::size_t i) { return loudnessField(std::int16_t(getLE(data, bextLoudnessOffset + 2 * i, 2))); };
    if (f.version >= 2) f.loudness = {field(0), field(1), field(2), field(3), field(4)};
    f.codingHistory = fixedText(text + fixedBytes, data.size() - fixedBytes);
    return f;
}

BextLoudness bextLoudnessOf(const LoudnessResult& m) {
    const auto finite = [](double v) { return std::isfinite(v) ? std::optional<double>(v) : std::nullopt; };
    return {finite(m.integratedLUFS), m.loudnessRange, m.truePeakDB > -200.0 ? finite(m.truePeakDB) : std::nullopt,
            finite(m.momentaryMax), finite(m.shortTermMax)};
}

bool patchBextLoudness(int fd, const BextLoudness& loudness) {
    // Walk the RIFF chunks to the bext one; libsndfile puts it in the header, before the data.
    // An RF64 file (a master past 4 GiB) keeps 32-bit sizes for every chunk but the data.
    unsigned char head[12];
    if (pread(fd, head, sizeof head, 0) != ssize_t(sizeof head) ||
        (std::memcmp(head, "RIFF", 4) && std::memcmp(head, "RF64", 4)) || std::memcmp(head + 8, "WAVE", 4))
        return false;
    off_t at = 12;
    for (int guard = 0; guard < 64; ++guard) {
        unsigned char chunk[8];
        if (pread(fd, chunk, sizeof chunk, at) != ssize_t(sizeof chunk)) return false;
        const std::uint32_t size = std::uint32_t(chunk[4]) | std::uint32_t(chunk[5]) << 8 | std::uint32_t(chunk[6]) << 16 |
                                   std::uint32_t(chunk[7]) << 24;
        if (!std::memcmp(chunk, "bext", 4)) {
            if (size < fixedBytes) return false;
            std::vector<unsigned char> fields;
            for (const auto& v : {loudness.integratedLUFS, loudness.loudnessRange, loudness.maxTruePeakDB,
                                  loudness.maxMomentaryLUFS, loudness.maxShortTermLUFS})
                putLE(fields, std::uint16_t(storedLoudness(v)), 2);
            const off_t where = at + 8 + off_t(bextLoudnessOffset);
            return pwrite(fd, fields.data(), fields.size(), where) == ssize_t(fields.size());
        }
        if (!std::memcmp(chunk, "data", 4)) return false;
        at += 8 + off_t(size) + off_t(size & 1);
    }
    return false;
}

std::optional<std::string> bextLoudnessText(const BextLoudness& l) {
    if (!l.integratedLUFS && !l.loudnessRange && !l.maxTruePeakDB && !l.maxMomentaryLUFS && !l.maxShortTermLUFS)
        return std::nullopt;
    const auto value = [](const std::optional<double>& v) { return v ? formatOneDecimal(*v) : std::string("—"); };
    return "bext : " + value(l.integratedLUFS) + " LUFS · LRA " + value(l.loudnessRange) + " LU · TP " +
           value(l.maxTruePeakDB) + " dBTP · M " + value(l.maxMomentaryLUFS) + " · S " + value(l.maxShortTermLUFS);
}

std::optional<BextLoudness> claimedBextLoudness(const std::string& path) {
    const SourceMetadata metadata = readSourceMetadata(path);
    if (!metadata.bext || !bextLoudnessText(metadata.bext->loudness)) return std::nullopt;
    return metadata.bext->loudness;
}

}  // namespace velmora
