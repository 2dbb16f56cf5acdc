#pragma once
// A thread of our own where output events are handled: the real-time callback and JACK's
// notification thread may neither lock nor call back into the audio library, this thread may.
#include <semaphore.h>

#include <atomic>
#include <functional>
#include <thread>

#include "audio/OutputEvents.h"

namespace velmora {

class EventThread final : public OutputEvents {
public:
    // Starts the thread; `handle` receives the events posted since its last call, merged.
    explicit EventThread(std::function<void(unsigned events)> handle);
    ~EventThread();
    EventThread(const EventThread&) = delete;
    EventThread& operator=(const EventThread&) = delete;

    void post(unsigned events) noexcept override;
    // [owner] Waits for the handler in progress and ends the thread; later posts are dropped.
    void stop();

private:
    void run();

    std::function<void(unsigned)> handle_;
    std::atomic<unsigned> pending_{0};
    std::atomic<bool> stopping_{false};
    sem_t wake_;  // sem_post is safe on the real-time thread, a condition variable is not
    std::thread thread_;
};

}  // namespace velmora
