// A pool of worker threads. Each worker runs queued tasks one after another, so in a pool of one worker a
// task that never returns blocks all tasks behind it.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <queue>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

class ThreadPool {
  public:
    // Starts `count` workers at once. Throws std::system_error (resource_unavailable_try_again) when a thread
    // cannot be started.
    explicit ThreadPool(size_t count);
    // Calls Stop.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Appends a task that calls `function` with `arguments`. Only the future reports the task's end and its
    // exception. Throws std::runtime_error once the pool is stopped. Any thread.
    template <class Function, class... Arguments>
    std::future<void> enqueue(Function&& function, Arguments&&... arguments) {
        auto task = std::make_shared<std::packaged_task<void()>>(
            std::bind(std::forward<Function>(function), std::forward<Arguments>(arguments)...));
        std::future<void> result = task->get_future();
        {
            std::lock_guard lock(queueMutex);
            if (stop || stopNow) throw std::runtime_error("enqueue on stopped ThreadPool");
            tasks.emplace([task] { (*task)(); });
        }
        condition.notify_one();
        return result;
    }

    // Returns the number of tasks that have not begun. Any thread.
    size_t Waiting();

    // Stops the pool permanently: waits until the running tasks return and drops those that have not begun.
    // It may be called again, and from any thread except the pool's own workers. On a worker it throws
    // std::system_error (resource_deadlock_would_occur).
    void Stop();

  private:
    void Work();

    std::vector<std::thread> workers;
    std::queue<std::function<void()>> tasks;
    std::mutex queueMutex;
    std::condition_variable condition;
    bool stop = false;
    bool stopNow = false;
    // Two threads may stop the pool at once, but only one of them can join a worker.
    std::mutex m_joinMutex;
};
