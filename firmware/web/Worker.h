// Does one thing after the other on a thread of its own, for a thread that must not wait.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace mpm::web {

class Worker {
  public:
    explicit Worker(size_t mostWaiting) : m_mostWaiting(mostWaiting), m_thread(&Worker::Main, this) {}
    ~Worker();  // what waits is dropped
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // False when too much waits already. The job throws nothing.
    bool Post(std::function<void()> job);

  private:
    void Main();

    const size_t m_mostWaiting;
    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_jobs;
    bool m_stopping = false;
    std::thread m_thread;
};

}  // namespace mpm::web
