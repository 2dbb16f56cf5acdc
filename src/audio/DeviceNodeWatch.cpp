#include "audio/DeviceNodeWatch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace velmora {

namespace {
constexpr const char* soundNodes = "/dev/snd";
constexpr std::uint32_t nodeEvents = IN_CREATE | IN_DELETE;
}  // namespace

DeviceNodeWatch::DeviceNodeWatch(OutputEvents& events) : events_(events) {
    inotify_ = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (inotify_ < 0 || wake_ < 0) return;
    devWatch_ = inotify_add_watch(inotify_, "/dev", IN_CREATE | IN_ONLYDIR);
    sndWatch_ = inotify_add_watch(inotify_, soundNodes, nodeEvents);
    thread_ = std::thread([this] { run(); });
}

DeviceNodeWatch::~DeviceNodeWatch() {
    if (thread_.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
        thread_.join();
    }
    if (inotify_ >= 0) close(inotify_);
    if (wake_ >= 0) close(wake_);
}

void DeviceNodeWatch::run() {
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        pollfd fds[2] = {{inotify_, POLLIN, 0}, {wake_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 && errno != EINTR) return;
        if (fds[1].revents) return;
        bool changed = false;
        for (ssize_t n; (n = read(inotify_, buffer, sizeof buffer)) > 0;) {
            for (char* at = buffer; at < buffer + n;) {
                const auto* e = reinterpret_cast<const inotify_event*>(at);
                at += sizeof(inotify_event) + e->len;
                if (e->wd == devWatch_ && e->len && std::strcmp(e->name, "snd") == 0) {
                    sndWatch_ = inotify_add_watch(inotify_, soundNodes, nodeEvents);
                    changed = true;
                } else if (e->wd == sndWatch_) {
                    changed = true;  // a node came or went, or the folder itself went
                }
            }
        }
        if (changed) events_.post(OutputEvents::devicesChanged);
    }
}

}  // namespace velmora
