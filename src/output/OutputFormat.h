#pragma once
// What a master file is made of: sample format, container, rate and speaker layout, with the
// texts the user picks them by (raw values double as display texts and persisted values).
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "audio/ChannelLayout.h"

namespace velmora {

enum class BitDepth { int16, int24, float32 };
enum class FileFormat { wav, aiff };

inline constexpr std::array allBitDepths{BitDepth::int16, BitDepth::int24, BitDepth::float32};
inline constexpr std::array allFileFormats{FileFormat::wav, FileFormat::aiff};

std::string_view rawValue(BitDepth);    // "16 bits", "24 bits", "32 bits flottant"
std::string_view rawValue(FileFormat);  // "WAV", "AIFF"
std::optional<BitDepth> bitDepthFromRaw(std::string_view);
std::optional<FileFormat> fileFormatFromRaw(std::string_view);

int bits(BitDepth);  // 16, 24, 32
bool isFloat(BitDepth);
std::string_view extension(FileFormat);  // "wav", "aif"
// AIFF when the lower-cased extension starts with "aif" (.aif, .aiff, .aifc), else WAV.
FileFormat formatForPath(std::string_view path);

// "Fréquence de sortie": 0 Hz stands for the source's own rate.
struct OutputRateChoice {
    std::string_view label;
    double hz;
};
inline constexpr std::array<OutputRateChoice, 7> outputRateChoices{{{"Origine", 0.0},
                                                                    {"44,1 kHz", 44100.0},
                                                                    {"48 kHz", 48000.0},
                                                                    {"88,2 kHz", 88200.0},
                                                                    {"96 kHz", 96000.0},
                                                                    {"176,4 kHz", 176400.0},
                                                                    {"192 kHz", 192000.0}}};
double resolveOutputRate(double outputRate, double sourceRate);

// One speaker bit of PlanarAudio.h per channel, in the channel order of the buffer, so a
// file's declaredPositions can be handed over as they are.
using SpeakerLayout = std::vector<std::uint64_t>;

SpeakerLayout monoLayout();
SpeakerLayout stereoLayout();
// The surrounds of 5.1 are the back pair: the one layout WAV, AIFF and FFmpeg all call "5.1".
SpeakerLayout surround51Layout(ChannelOrder);
// L R C LFE Ls Rs Lrs Rrs: side surrounds, then the rear pair.
SpeakerLayout surround71Layout();
// 1 mono, 2 stereo, 6 5.1 (SMPTE order), 8 7.1; nothing for any other count.
std::optional<SpeakerLayout> defaultLayout(std::size_t channelCount);

// The speakers a master of a source declares: the source's own positions when they name one
// distinct speaker a WAV mask can carry for every channel, so side surrounds stay side
// surrounds; else, for six channels, the chosen order's 5.1; else nothing (the writer decides
// by count).
std::optional<SpeakerLayout> masterLayout(std::size_t channelCount, const std::vector<std::uint64_t>& declaredPositions,
                                          ChannelOrder order);

}  // namespace velmora
