#include "winhost/http/AwaitDescriptors.h"

#include <sys/timerfd.h>

#include <algorithm>
#include <chrono>
#include <mutex>

#include "testbed/Descriptor.h"
#include "winhost/pipe/Interrupt.h"

namespace winhost {
namespace {

using RealTime = std::chrono::steady_clock::time_point;

// Some of its calls are those of a condition variable, for the clock.
class DescriptorWait {
  public:
    // The last descriptor is that of the wake.
    DescriptorWait(std::vector<pollfd>& polled, Interrupt& wake) : m_polled(polled), m_wake(wake) {}

    bool IsReady() const { return m_isReady; }
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
        if (ppoll(m_polled.data(), m_polled.size(), time, nullptr) > 0) {
            m_isReady = std::any_of(m_polled.begin(), m_polled.end() - 1,
                                    [](const pollfd& polled) { return polled.revents != 0; });
            if (m_polled.back().revents != 0) m_wake.Clear();
        }
        lock.lock();
    }

    std::vector<pollfd>& m_polled;
    Interrupt& m_wake;
    bool m_isReady = false;
};

testbed::Descriptor TimerIn(long milliseconds) {
    testbed::Descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    // A timer of 0 would never fire.
    itimerspec time{};
    time.it_value.tv_sec = milliseconds / 1000;
    time.it_value.tv_nsec = std::max(1L, milliseconds % 1000 * 1'000'000);
    timerfd_settime(timer.Get(), 0, &time, nullptr);
    return timer;
}

}  // namespace

bool AwaitDescriptors(std::vector<pollfd> descriptors, Clock::Deadline deadline, long look) {
    // Ends the wait of this thread when the clock is moved.
    static thread_local Interrupt wake;
    testbed::Descriptor timer;
    if (look >= 0) {
        timer = TimerIn(look);
        descriptors.push_back({timer.Get(), POLLIN, 0});
    }
    descriptors.push_back({wake.Get(), POLLIN, 0});
    DescriptorWait wait(descriptors, wake);
    std::mutex mutex;
    std::unique_lock lock(mutex);
    return Clock::Instance().WaitUntil(lock, wait, deadline, [&] { return wait.IsReady(); });
}

}  // namespace winhost
