#pragma once
// Broadcast Wave metadata carried from a source to its master: the bext chunk (version 2, with
// the loudness of the master as written), and the iXML and axml chunks copied as they are.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "measurement/LoudnessEngine.h"

namespace velmora {

// The five loudness fields of a bext chunk, in their units (LUFS, LU, dBTP).
struct BextLoudness {
    std::optional<double> integratedLUFS, loudnessRange, maxTruePeakDB, maxMomentaryLUFS, maxShortTermLUFS;
};

struct BextFields {
    std::string description, originator, originatorReference;
    std::string originationDate, originationTime;  // "yyyy-mm-dd", "hh:mm:ss"
    std::uint64_t timeReference = 0;               // samples since midnight, at the file's rate
    int version = 0;
    BextLoudness loudness;  // version 2 only; unset fields are stored as 0x7FFF
    std::string codingHistory;  // lines ending with CR LF
};

struct RawChunk {
    std::string id;  // four characters
    std::vector<unsigned char> data;
};

// What a master keeps of its source: nothing for a file without any of it, or one libsndfile
// cannot open (a compressed or video file).
struct SourceMetadata {
    std::optional<BextFields> bext;
    std::vector<RawChunk> chunks;  // iXML and axml, in that order when both are present
};
SourceMetadata readSourceMetadata(const std::string& path);

// The bext chunk a master carries: the source's fields, or "Velmora" and the master's date and
// time where it has none; its time reference at the master's rate; its coding history with one
// line added for the master; version 2 with the loudness fields unset until patched.
struct MasterBextInput {
    const SourceMetadata* source = nullptr;
    std::string sourceName;  // the description when the source gives none
    double sourceRate = 0, fileRate = 0;
    int bits = 24;
    bool floatSamples = false;
    std::size_t channels = 2;
    std::string processing;  // "norm EBU R128; -23.0 LUFS": what was done, for the coding history
};
BextFields masterBext(const MasterBextInput& input);

// The chunk's bytes as stored (without the 8-byte header): 602 bytes, then the coding history.
std::vector<unsigned char> bextChunkData(const BextFields& fields);
BextFields parseBextChunk(const std::vector<unsigned char>& data);

// Where the loudness fields are inside the chunk's data, and their stored values (×100, 0x7FFF
// when unknown).
inline constexpr std::size_t bextLoudnessOffset = 412;
BextLoudness bextLoudnessOf(const LoudnessResult& measured);

// Writes the loudness fields into the bext chunk of the WAV file open at fd; false when the file
// has no bext chunk or cannot be written.
bool patchBextLoudness(int fd, const BextLoudness& loudness);

// "EBU R98" line: "A=PCM,F=48000,W=24,M=5.1,T=Velmora 0.1.0; <processing>\r\n".
std::string codingHistoryLine(double fileRate, int bits, bool floatSamples, std::size_t channels,
                              const std::string& processing);

// "bext : -23.0 LUFS · LRA 5.2 LU · TP -1.0 dBTP · M -15.1 · S -18.2", or nothing when the
// file's bext has no loudness.
std::optional<std::string> bextLoudnessText(const BextLoudness& loudness);
// What a WAV file's own bext chunk claims of its loudness; nothing when it has no chunk or the
// chunk gives no loudness field.
std::optional<BextLoudness> claimedBextLoudness(const std::string& path);

}  // namespace velmora
