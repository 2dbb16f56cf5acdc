#pragma once
// A few persistent threads for work that splits by channel. Channels are independent
// through the whole measurement, so one task per channel and no sharing inside a task.
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace velmora {

class WorkerPool {
public:
    // Allocates and starts `threads` threads (none when 0: tasks then run in start()).
    explicit WorkerPool(std::size_t threads);
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // Runs task(0 … count-1) on the workers and returns at once. The previous batch must have
    // been waited for.
    void start(std::size_t count, std::function<void(std::size_t)> task);
    // Blocks until the batch started last has finished.
    void wait();

    // The pool size worth using for `tasks` independent tasks on this machine.
    static std::size_t threadsFor(std::size_t tasks);

private:
    void loop();

    std::vector<std::thread> threads_;
    std::mutex mutex_;
    std::condition_variable wake_, done_;
    std::function<void(std::size_t)> task_;
    std::size_t next_ = 0, count_ = 0, finished_ = 0;
    unsigned long generation_ = 0;
    bool stopping_ = false;
};

// Runs fn(0 … count-1) in parallel and returns when all are done.
void parallelFor(std::size_t count, const std::function<void(std::size_t)>& fn);

}  // namespace velmora
