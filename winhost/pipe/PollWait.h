// One thread's wait for descriptors of the host. Some of its calls are those of a condition variable, for the
// clock.
#pragma once

#include <poll.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <vector>

#include "winhost/pipe/Interrupt.h"

namespace winhost {

class PollWait {
  public:
    using RealTime = std::chrono::steady_clock::time_point;

    // The last descriptor is that of the wake.
    PollWait(std::vector<pollfd>& polled, Interrupt& wake) : m_polled(polled), m_wake(wake) {}

    bool IsReady() const { return m_isReady; }
    void Look() {
        const timespec none{};
        Poll(&none);
    }

    void wait(std::unique_lock<std::mutex>& lock) { Block(lock, nullptr); }
    void wait_until(std::unique_lock<std::mutex>& lock, RealTime until) {
        const auto left = std::max(until - std::chrono::steady_clock::now(), RealTime::duration::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
        const timespec time{seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
        Block(lock, &time);
    }
    void notify_all() { m_wake.Raise(); }

  private:
    void Block(std::unique_lock<std::mutex>& lock, const timespec* time) {
        lock.unlock();
        Poll(time);
        lock.lock();
    }
    void Poll(const timespec* time) {
        if (ppoll(m_polled.data(), m_polled.size(), time, nullptr) <= 0) return;
        m_isReady = std::any_of(m_polled.begin(), m_polled.end() - 1,
                                [](const pollfd& polled) { return polled.revents != 0; });
        if (m_polled.back().revents != 0) m_wake.Clear();
    }

    std::vector<pollfd>& m_polled;
    Interrupt& m_wake;
    bool m_isReady = false;
};

}  // namespace winhost
