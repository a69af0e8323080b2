// The wait for sockets that can be read.
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <mutex>

#include "winhost/net/Socket.h"
#include "winhost/pipe/Interrupt.h"

namespace winhost {
namespace {

using RealTime = std::chrono::steady_clock::time_point;

// One thread's wait. Some of its calls are those of a condition variable, for the clock.
class PollWait {
  public:
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

}  // namespace

int Socket::AwaitReadable(const std::vector<std::shared_ptr<Socket>>& sockets, Clock::Deadline deadline,
                          std::vector<bool>& isReadable) {
    // Ends the polls of this thread when the clock is moved.
    static thread_local Interrupt wake;
    std::vector<pollfd> polled;
    for (const auto& socket : sockets) {
        // A negative descriptor is left out: nothing can come to a socket that is not connected, which the
        // host calls hung up.
        const bool canReceive = socket->m_state == State::Listening || socket->m_state == State::Connected;
        polled.push_back({canReceive ? socket->m_descriptor : -1, POLLIN, 0});
    }
    polled.push_back({wake.Get(), POLLIN, 0});
    PollWait wait(polled, wake);
    wait.Look();
    std::mutex mutex;
    std::unique_lock lock(mutex);
    Clock::Instance().WaitUntil(lock, wait, deadline, [&] { return wait.IsReady(); });
    if (std::any_of(sockets.begin(), sockets.end(),
                    [](const auto& socket) { return socket->m_closed.load(); }))
        return -ENOTSOCK;
    isReadable.clear();
    if (!wait.IsReady()) polled.assign(polled.size(), {-1, 0, 0});
    for (size_t i = 0; i < sockets.size(); ++i)
        isReadable.push_back(polled[i].revents != 0);
    return static_cast<int>(std::count(isReadable.begin(), isReadable.end(), true));
}

}  // namespace winhost
