#include "audio/ChannelLabels.h"

#include "audio/PlanarAudio.h"

namespace velmora {

namespace {

std::string positionLabel(std::uint64_t p, std::size_t index) {
    switch (p) {
    case speaker::frontLeft: return "L";
    case speaker::frontRight: return "R";
    case speaker::frontCenter: return "C";
    case speaker::lowFrequency: return "LFE";
    case speaker::lowFrequency2: return "LFE2";
    case speaker::backLeft: return "Lrs";
    case speaker::backRight: return "Rrs";
    case speaker::frontLeftOfCenter: return "Lc";
    case speaker::frontRightOfCenter: return "Rc";
    case speaker::backCenter: return "Cs";
    case speaker::sideLeft: return "Ls";
    case speaker::sideRight: return "Rs";
    case 0x800: return "Ts";
    case 0x1000: return "Ltf";
    case 0x2000: return "Ctf";
    case 0x4000: return "Rtf";
    case 0x8000: return "Ltr";
    case 0x10000: return "Ctr";
    case 0x20000: return "Rtr";
    default: return std::to_string(index + 1);
    }
}

std::vector<std::string> layoutLabels(ChannelLayout l) {
    switch (l) {
    case ChannelLayout::mono: return {"M"};
    case ChannelLayout::stereo: return {"L", "R"};
    case ChannelLayout::s51: return {"L", "R", "C", "LFE", "Ls", "Rs"};
    case ChannelLayout::s512: return {"L", "R", "C", "LFE", "Ls", "Rs", "Ltm", "Rtm"};
    case ChannelLayout::s514: return {"L", "R", "C", "LFE", "Ls", "Rs", "Ltf", "Rtf", "Ltr", "Rtr"};
    case ChannelLayout::s71: return {"L", "R", "C", "LFE", "Ls", "Rs", "Lrs", "Rrs"};
    case ChannelLayout::s712: return {"L", "R", "C", "LFE", "Ls", "Rs", "Lrs", "Rrs", "Ltm", "Rtm"};
    case ChannelLayout::s714: return {"L", "R", "C", "LFE", "Ls", "Rs", "Lrs", "Rrs", "Ltf", "Rtf", "Ltr", "Rtr"};
    case ChannelLayout::autoDetect: return {};
    }
    return {};
}

ChannelLayout usualLayout(int count) {
    switch (count) {
    case 1: return ChannelLayout::mono;
    case 2: return ChannelLayout::stereo;
    case 6: return ChannelLayout::s51;
    case 8: return ChannelLayout::s71;
    case 10: return ChannelLayout::s712;
    case 12: return ChannelLayout::s714;
    default: return ChannelLayout::autoDetect;
    }
}
}  // namespace

std::vector<std::string> channelLabels(int count, ChannelLayout layout, ChannelOrder order,
                                       const std::vector<std::uint64_t>& declared) {
    std::vector<std::string> out;
    if (count <= 0) return out;
    if (int(declared.size()) == count) {
        for (std::size_t i = 0; i < declared.size(); ++i) out.push_back(positionLabel(declared[i], i));
        return out;
    }
    if (count == 6) {
        const auto labels = orderLabels(order);
        return {labels.begin(), labels.end()};
    }
    if (auto l = layoutLabels(layout); int(l.size()) == count) return l;
    if (auto l = layoutLabels(usualLayout(count)); int(l.size()) == count) return l;
    for (int i = 0; i < count; ++i) out.push_back(std::to_string(i + 1));
    return out;
}

}  // namespace velmora
