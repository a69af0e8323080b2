// The wait for sockets that can be read.
#include <algorithm>
#include <mutex>

#include "winhost/net/Socket.h"
#include "winhost/pipe/PollWait.h"

namespace winhost {

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
