// The one thread on which the simulated firmware lives: it waits for descriptors, timers and calls from other
// threads.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "testbed/Descriptor.h"

namespace mpm {

class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using WatchId = uint64_t;
    using TimerId = uint64_t;

    EventLoop();  // starts the thread; throws std::system_error
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Runs the call on the loop's thread and returns when it is done, with its exception when it threw. Any
    // thread.
    void Run(const std::function<void()>& call);
    // Ends the thread after what it is doing; nothing runs on it afterwards, and Run runs on the caller's.
    void Stop();

    // --- on the loop's thread only ---
    // Calls `ready` with the EPOLL bits whenever the descriptor has one of `events`. The descriptor stays its
    // owner's.
    WatchId Watch(int descriptor, uint32_t events, std::function<void(uint32_t)> ready);
    void ChangeEvents(WatchId watch, uint32_t events);
    void Unwatch(WatchId watch);
    TimerId After(Clock::duration delay, std::function<void()> call);
    void Cancel(TimerId timer);

  private:
    struct Watched {
        int descriptor;
        std::function<void(uint32_t)> ready;
    };
    void Main();
    void RunCalls();
    // Runs the timers that are due and returns the milliseconds until the next, -1 when there is none.
    int RunTimers();

    testbed::Descriptor m_epoll, m_wake;
    uint64_t m_nextId = 1;
    std::unordered_map<WatchId, std::shared_ptr<Watched>> m_watched;
    std::map<std::pair<Clock::time_point, TimerId>, std::function<void()>> m_timers;
    std::mutex m_mutex;  // guards what follows
    std::vector<std::packaged_task<void()>> m_calls;
    bool m_stopping = false;
    std::thread m_thread;
};

}  // namespace mpm
