#include "audio/EventThread.h"

#include <cerrno>

namespace velmora {

EventThread::EventThread(std::function<void(unsigned)> handle) : handle_(std::move(handle)) {
    sem_init(&wake_, 0, 0);
    thread_ = std::thread([this] { run(); });
}

EventThread::~EventThread() {
    stop();
    sem_destroy(&wake_);
}

void EventThread::post(unsigned events) noexcept {
    pending_.fetch_or(events);
    sem_post(&wake_);
}

void EventThread::stop() {
    if (!thread_.joinable()) return;
    stopping_.store(true);
    sem_post(&wake_);
    thread_.join();
}

void EventThread::run() {
    for (;;) {
        while (sem_wait(&wake_) != 0 && errno == EINTR) {
        }
        if (stopping_.load()) return;
        const unsigned events = pending_.exchange(0);
        if (!events) continue;
        // An exception here would end the process; the handler reports through its own state.
        try {
            handle_(events);
        } catch (...) {
        }
    }
}

}  // namespace velmora
