// An unbounded first-in, first-out queue of accepted sockets.
#pragma once

#include <winsock2.h>

#include <condition_variable>
#include <mutex>
#include <queue>
#include <utility>

#include "base/Handles.h"

class SocketQueue {
  public:
    void push(UniqueSocket socket) {
        {
            std::lock_guard lock(m_mutex);
            m_sockets.push(std::move(socket));
        }
        m_condition.notify_one();
    }

    // Blocks until a socket is available. Returns an empty owner once the queue is closed, even when it still
    // holds sockets.
    UniqueSocket pop() {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [this] { return m_closed || !m_sockets.empty(); });
        if (m_closed) return {};
        UniqueSocket socket = std::move(m_sockets.front());
        m_sockets.pop();
        return socket;
    }

    // Returns all sockets at once without blocking, even from a closed queue. Those that come later stay in
    // the queue.
    std::queue<UniqueSocket> takeAll() {
        std::lock_guard lock(m_mutex);
        return std::exchange(m_sockets, {});
    }

    size_t size() {
        std::lock_guard lock(m_mutex);
        return m_sockets.size();
    }

    // Closes the queue and unblocks every pop().
    void close() {
        {
            std::lock_guard lock(m_mutex);
            m_closed = true;
        }
        m_condition.notify_all();
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::queue<UniqueSocket> m_sockets;
    bool m_closed = false;
};
