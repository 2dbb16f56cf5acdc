#pragma once
// The user's channel vocabulary: format, 5.1 order, gating choice and display unit, and the
// rule that turns a channel count into loudness weights.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velmora {

enum class ChannelLayout { autoDetect, mono, stereo, s51, s512, s514, s71, s712, s714 };
enum class ChannelOrder { smpte, film, itu, aac };
enum class GatingMode { autoMode, ebuR128, global, dialog };
enum class LoudnessUnit { lufs, lkfs };

// Raw values double as display texts and persisted values.
std::string_view rawValue(ChannelLayout);
std::string_view rawValue(ChannelOrder);
std::string_view rawValue(GatingMode);
std::string_view rawValue(LoudnessUnit);

// Nothing for a string that matches no case, so a stale stored setting falls back to its default.
std::optional<ChannelLayout> channelLayoutFromRaw(std::string_view);
std::optional<ChannelOrder> channelOrderFromRaw(std::string_view);
std::optional<GatingMode> gatingModeFromRaw(std::string_view);
std::optional<LoudnessUnit> loudnessUnitFromRaw(std::string_view);

inline constexpr std::array allChannelLayouts{ChannelLayout::autoDetect, ChannelLayout::mono, ChannelLayout::stereo,
                                              ChannelLayout::s51,        ChannelLayout::s512, ChannelLayout::s514,
                                              ChannelLayout::s71,        ChannelLayout::s712, ChannelLayout::s714};
inline constexpr std::array allChannelOrders{ChannelOrder::smpte, ChannelOrder::film, ChannelOrder::itu,
                                             ChannelOrder::aac};
inline constexpr std::array allGatingModes{GatingMode::autoMode, GatingMode::ebuR128, GatingMode::global,
                                           GatingMode::dialog};
inline constexpr std::array allLoudnessUnits{LoudnessUnit::lufs, LoudnessUnit::lkfs};

// Surround weight: exactly 1.41, not the 1.41254 of +1.5 dB.
inline constexpr double surroundWeight = 1.41;

std::optional<std::vector<double>> layoutWeights(ChannelLayout);
std::optional<int> expectedChannelCount(ChannelLayout);
std::array<std::string, 6> orderLabels(ChannelOrder);
std::array<double, 6> orderWeights(ChannelOrder);
std::vector<double> defaultWeights(int channelCount);

// Weights from the positions a file declares: LFE 0, side and back surrounds 1.41, others 1.
std::vector<double> declaredWeights(const std::vector<std::uint64_t>& positions);

// The file's declared positions when it has them for every channel: they say where each
// channel goes, so no setting can contradict them. Otherwise six channels follow the 5.1 order,
// a matching layout gives its row, and anything else gets defaultWeights.
std::vector<double> resolveChannelWeights(int channelCount, ChannelLayout, ChannelOrder,
                                          const std::vector<std::uint64_t>& declaredPositions = {});

// The 5.1 order in which a six-channel file's centre and LFE really lie, by the rule of
// resolveChannelWeights: the order its declared positions spell, else the chosen one. Nothing
// when the declared positions are not a 5.1 order (no LFE, say): there is no pair to compare.
std::optional<ChannelOrder> fivePointOneOrder(ChannelOrder chosen, const std::vector<std::uint64_t>& declaredPositions);

std::string channelDescription(int channelCount);
std::optional<std::string> layoutMismatchWarning(ChannelLayout, int channelCount);

}  // namespace velmora
