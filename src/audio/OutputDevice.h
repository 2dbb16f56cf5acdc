#pragma once
// An output device as the user picks it: a JACK client with playback ports, or an ALSA PCM.
#include <cstdint>
#include <string>
#include <vector>

namespace velmora {

struct OutputDevice {
    std::string uid;   // "JACK:" + client name, or "ALSA:" + PCM name; stable across runs
    std::string name;  // what the device picker shows
    std::int64_t outputChannels = 0;        // at least 1
    std::vector<std::string> channelNames;  // one per output channel

    bool operator==(const OutputDevice&) const = default;
};

}  // namespace velmora
