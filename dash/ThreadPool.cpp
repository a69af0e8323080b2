#include "dash/ThreadPool.h"

#include <system_error>

namespace {
// The pool that the calling thread is a worker of.
thread_local const ThreadPool* ownPool = nullptr;
}  // namespace

ThreadPool::ThreadPool(size_t count) {
    try {
        for (size_t i = 0; i < count; ++i)
            workers.emplace_back(&ThreadPool::Work, this);
    } catch (...) {
        Stop();
        throw;
    }
}

ThreadPool::~ThreadPool() {
    Stop();
}

void ThreadPool::Work() {
    ownPool = this;
    std::unique_lock lock(queueMutex);
    while (true) {
        condition.wait(lock, [this] { return stop || !tasks.empty(); });
        if ((stop && tasks.empty()) || stopNow) return;
        std::function<void()> task = std::move(tasks.front());
        tasks.pop();
        lock.unlock();
        task();
        task = nullptr;
        lock.lock();
    }
}

size_t ThreadPool::Waiting() {
    std::lock_guard lock(queueMutex);
    return tasks.size();
}

void ThreadPool::Stop() {
    {
        std::lock_guard lock(queueMutex);
        stop = stopNow = true;
    }
    condition.notify_all();
    if (ownPool == this) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    }
    {
        std::lock_guard lock(m_joinMutex);
        for (std::thread& worker : workers) {
            if (worker.joinable()) worker.join();
        }
    }
    std::queue<std::function<void()>> dropped;
    std::lock_guard lock(queueMutex);
    tasks.swap(dropped);
}
