#include "audio/ChannelLayout.h"

#include <algorithm>

#include "audio/PlanarAudio.h"

namespace velmora {

std::string_view rawValue(ChannelLayout l) {
    switch (l) {
    case ChannelLayout::autoDetect: return "Auto";
    case ChannelLayout::mono: return "Mono";
    case ChannelLayout::stereo: return "Stéréo";
    case ChannelLayout::s51: return "5.1";
    case ChannelLayout::s512: return "5.1.2";
    case ChannelLayout::s514: return "5.1.4";
    case ChannelLayout::s71: return "7.1";
    case ChannelLayout::s712: return "7.1.2";
    case ChannelLayout::s714: return "7.1.4";
    }
    return {};
}

std::string_view rawValue(ChannelOrder o) {
    switch (o) {
    case ChannelOrder::smpte: return "SMPTE / Film (L R C LFE Ls Rs)";
    case ChannelOrder::film: return "Pro Tools Film (L C R Ls Rs LFE)";
    case ChannelOrder::itu: return "ITU / DTS (L R Ls Rs C LFE)";
    case ChannelOrder::aac: return "AAC (C L R Ls Rs LFE)";
    }
    return {};
}

std::string_view rawValue(GatingMode g) {
    switch (g) {
    case GatingMode::autoMode: return "Auto";
    case GatingMode::ebuR128: return "EBU R128 (gate relatif -10 LU)";
    case GatingMode::global: return "Global ITU (gate absolu seul)";
    case GatingMode::dialog: return "Dialogues (ATSC / Netflix)";
    }
    return {};
}

std::string_view rawValue(LoudnessUnit u) { return u == LoudnessUnit::lufs ? "LUFS" : "LKFS"; }

namespace {
template <typename E, std::size_t N>
std::optional<E> fromRaw(const std::array<E, N>& all, std::string_view raw) {
    for (E e : all)
        if (rawValue(e) == raw) return e;
    return std::nullopt;
}
}  // namespace

std::optional<ChannelLayout> channelLayoutFromRaw(std::string_view s) { return fromRaw(allChannelLayouts, s); }
std::optional<ChannelOrder> channelOrderFromRaw(std::string_view s) { return fromRaw(allChannelOrders, s); }
std::optional<GatingMode> gatingModeFromRaw(std::string_view s) { return fromRaw(allGatingModes, s); }
std::optional<LoudnessUnit> loudnessUnitFromRaw(std::string_view s) { return fromRaw(allLoudnessUnits, s); }

std::optional<std::vector<double>> layoutWeights(ChannelLayout l) {
    constexpr double S = surroundWeight;
    switch (l) {
    case ChannelLayout::autoDetect: return std::nullopt;
    case ChannelLayout::mono: return std::vector<double>{1.0};
    case ChannelLayout::stereo: return std::vector<double>{1.0, 1.0};
    case ChannelLayout::s51: return std::vector<double>{1, 1, 1, 0, S, S};
    case ChannelLayout::s512: return std::vector<double>{1, 1, 1, 0, S, S, 1, 1};
    case ChannelLayout::s514: return std::vector<double>{1, 1, 1, 0, S, S, 1, 1, 1, 1};
    case ChannelLayout::s71: return std::vector<double>{1, 1, 1, 0, S, S, S, S};
    case ChannelLayout::s712: return std::vector<double>{1, 1, 1, 0, S, S, S, S, 1, 1};
    case ChannelLayout::s714: return std::vector<double>{1, 1, 1, 0, S, S, S, S, 1, 1, 1, 1};
    }
    return std::nullopt;
}

std::optional<int> expectedChannelCount(ChannelLayout l) {
    auto w = layoutWeights(l);
    if (!w) return std::nullopt;
    return int(w->size());
}

std::array<std::string, 6> orderLabels(ChannelOrder o) {
    switch (o) {
    case ChannelOrder::smpte: return {"L", "R", "C", "LFE", "Ls", "Rs"};
    case ChannelOrder::film: return {"L", "C", "R", "Ls", "Rs", "LFE"};
    case ChannelOrder::itu: return {"L", "R", "Ls", "Rs", "C", "LFE"};
    case ChannelOrder::aac: return {"C", "L", "R", "Ls", "Rs", "LFE"};
    }
    return {};
}

std::array<double, 6> orderWeights(ChannelOrder o) {
    std::array<double, 6> w{};
    auto labels = orderLabels(o);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const auto& l = labels[i];
        w[i] = l == "LFE" ? 0.0 : (l == "Ls" || l == "Rs" || l == "Lss" || l == "Rss") ? surroundWeight : 1.0;
    }
    return w;
}

std::vector<double> defaultWeights(int channelCount) {
    switch (channelCount) {
    case 6: return *layoutWeights(ChannelLayout::s51);
    case 8: return *layoutWeights(ChannelLayout::s71);
    case 10: return *layoutWeights(ChannelLayout::s712);
    case 12: return *layoutWeights(ChannelLayout::s714);
    default: return std::vector<double>(std::size_t(std::max(channelCount, 0)), 1.0);
    }
}

std::vector<double> declaredWeights(const std::vector<std::uint64_t>& positions) {
    std::vector<double> w;
    w.reserve(positions.size());
    for (auto p : positions) {
        if (p == speaker::lowFrequency || p == speaker::lowFrequency2)
            w.push_back(0.0);
        else if (p == speaker::sideLeft || p == speaker::sideRight || p == speaker::backLeft || p == speaker::backRight)
            w.push_back(surroundWeight);
        else
            w.push_back(1.0);
    }
    return w;
}

std::vector<double> resolveChannelWeights(int channelCount, ChannelLayout layout, ChannelOrder order,
                                          const std::vector<std::uint64_t>& declaredPositions) {
    if (channelCount > 0 && int(declaredPositions.size()) == channelCount) return declaredWeights(declaredPositions);
    if (channelCount == 6) {
        auto w = orderWeights(order);
        return {w.begin(), w.end()};
    }
    if (auto w = layoutWeights(layout); w && int(w->size()) == channelCount) return *w;
    return defaultWeights(channelCount);
}

std::optional<ChannelOrder> fivePointOneOrder(ChannelOrder chosen, const std::vector<std::uint64_t>& declaredPositions) {
    if (declaredPositions.empty()) return chosen;
    if (declaredPositions.size() != 6) return std::nullopt;
    std::array<std::string_view, 6> labels;
    for (std::size_t i = 0; i < labels.size(); ++i) {
        switch (declaredPositions[i]) {
        case speaker::frontLeft: labels[i] = "L"; break;
        case speaker::frontRight: labels[i] = "R"; break;
        case speaker::frontCenter: labels[i] = "C"; break;
        case speaker::lowFrequency: labels[i] = "LFE"; break;
        case speaker::backLeft:
        case speaker::sideLeft: labels[i] = "Ls"; break;
        case speaker::backRight:
        case speaker::sideRight: labels[i] = "Rs"; break;
        default: return std::nullopt;
        }
    }
    for (ChannelOrder o : allChannelOrders) {
        const auto names = orderLabels(o);
        if (std::equal(labels.begin(), labels.end(), names.begin())) return o;
    }
    return std::nullopt;
}

std::string channelDescription(int n) {
    switch (n) {
    case 1: return "mono";
    case 2: return "stéréo";
    case 6: return "6 canaux (5.1)";
    case 8: return "8 canaux (7.1 ou 5.1.2)";
    case 10: return "10 canaux (5.1.4 ou 7.1.2)";
    case 12: return "12 canaux (7.1.4)";
    default: return std::to_string(n) + " canaux";
    }
}

std::optional<std::string> layoutMismatchWarning(ChannelLayout layout, int channelCount) {
    auto expected = expectedChannelCount(layout);
    if (!expected || *expected == channelCount) return std::nullopt;
    return "\u26A0\uFE0E Ce format attend " + std::to_string(*expected) + " canaux ; le fichier en a " +
           std::to_string(channelCount) + ". Mesure en Auto.";
}

}  // namespace velmora
