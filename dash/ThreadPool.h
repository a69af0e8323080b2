// Workers that run queued tasks strictly one after another each; a task that never returns blocks all behind
// it.
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
    // Starts `count` workers at once. A thread that cannot be started throws std::system_error
    // (resource_unavailable_try_again).
    explicit ThreadPool(size_t count);
    // As Stop.
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Appends a task; `function` is called with `arguments`. What the task returns by or throws is seen
    // through the future only. Throws std::runtime_error once the pool is stopped. Any thread.
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

    // How many tasks have not begun. Any thread.
    size_t Waiting();

    // Final: waits for the running tasks to return and drops those that have not begun. May be called again,
    // and from any thread but the pool's own workers, where it throws std::system_error
    // (resource_deadlock_would_occur).
    void Stop();

  private:
    void Work();

    std::vector<std::thread> workers;
    std::queue<std::function<void()>> tasks;
    std::mutex queueMutex;
    std::condition_variable condition;
    bool stop = false;
    bool stopNow = false;
    std::mutex m_joinMutex;  // two threads may stop the pool at once; only one of them can join a worker
};
