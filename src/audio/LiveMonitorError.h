#pragma once
// Why real-time listening could not be routed or started, each with the French message the
// user sees.
#include <string>

namespace velmora {

struct LiveMonitorError {
    enum class Code {
        deviceNotFound,        // payload: uid
        deviceSetFailed,       // payload: status (the audio library's code)
        channelMapFailed,      // payload: status
        engineStartFailed,     // payload: detail (the library's description)
        noOutputUnit,          // neither a JACK server nor ALSA could be reached
        bufferCreationFailed,  // the one-shot buffer could not be folded or converted
    };
    Code code;
    std::string uid;
    int status = 0;
    std::string detail;

    static LiveMonitorError deviceNotFound(std::string uid) { return {Code::deviceNotFound, std::move(uid), 0, {}}; }
    static LiveMonitorError deviceSetFailed(int status) { return {Code::deviceSetFailed, {}, status, {}}; }
    static LiveMonitorError channelMapFailed(int status) { return {Code::channelMapFailed, {}, status, {}}; }
    static LiveMonitorError engineStartFailed(std::string detail) {
        return {Code::engineStartFailed, {}, 0, std::move(detail)};
    }
    static LiveMonitorError noOutputUnit() { return {Code::noOutputUnit, {}, 0, {}}; }
    static LiveMonitorError bufferCreationFailed() { return {Code::bufferCreationFailed, {}, 0, {}}; }

    std::string message() const;
    bool operator==(const LiveMonitorError&) const = default;
};

}  // namespace velmora
