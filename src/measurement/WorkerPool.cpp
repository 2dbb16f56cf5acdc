#include "measurement/WorkerPool.h"

#include <algorithm>

namespace velmora {

WorkerPool::WorkerPool(std::size_t threads) {
    threads_.reserve(threads);
    for (std::size_t i = 0; i < threads; ++i) threads_.emplace_back([this] { loop(); });
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (auto& t : threads_) t.join();
}

std::size_t WorkerPool::threadsFor(std::size_t tasks) {
    const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
    // Even a single task gets a thread: it then runs beside the caller (a decoder feeding it).
    return std::min(tasks, cores);
}

void WorkerPool::start(std::size_t count, std::function<void(std::size_t)> task) {
    if (threads_.empty()) {
        for (std::size_t i = 0; i < count; ++i) task(i);
        return;
    }
    {
        std::lock_guard lock(mutex_);
        task_ = std::move(task);
        next_ = 0;
        count_ = count;
        finished_ = 0;
        ++generation_;
    }
    wake_.notify_all();
}

void WorkerPool::wait() {
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return finished_ == count_; });
}

void WorkerPool::loop() {
    unsigned long seen = 0;
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return stopping_ || (generation_ != seen && next_ < count_); });
        if (stopping_) return;
        while (next_ < count_) {
            const std::size_t i = next_++;
            lock.unlock();
            task_(i);
            lock.lock();
            if (++finished_ == count_) done_.notify_all();
        }
        seen = generation_;
    }
}

void parallelFor(std::size_t count, const std::function<void(std::size_t)>& fn) {
    if (count <= 1) {
        if (count == 1) fn(0);
        return;
    }
    WorkerPool pool(WorkerPool::threadsFor(count));
    pool.start(count, fn);
    pool.wait();
}

}  // namespace velmora
