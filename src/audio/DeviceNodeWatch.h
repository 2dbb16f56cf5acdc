#pragma once
// Sound cards come and go as their device nodes appear and vanish under /dev/snd (the folder
// itself appears with the first card): watched with inotify, so no device is reopened to learn
// of a change.
#include <thread>

#include "audio/OutputEvents.h"

namespace velmora {

class DeviceNodeWatch {
public:
    // Posts OutputEvents::devicesChanged from a thread of its own; watches nothing when inotify
    // is unavailable.
    explicit DeviceNodeWatch(OutputEvents& events);
    ~DeviceNodeWatch();
    DeviceNodeWatch(const DeviceNodeWatch&) = delete;
    DeviceNodeWatch& operator=(const DeviceNodeWatch&) = delete;

private:
    void run();

    OutputEvents& events_;
    int inotify_ = -1, wake_ = -1, devWatch_ = -1, sndWatch_ = -1;
    std::thread thread_;
};

}  // namespace velmora
