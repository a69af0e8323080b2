// An unbounded first-in, first-out queue of accepted sockets.
#pragma once

#include <winsock2.h>

#include <condition_variable>
#include <mutex>
#include <queue>

class SocketQueue {
  public:
    void push(SOCKET socket) {
        {
            std::lock_guard lock(m_mutex);
            m_sockets.push(socket);
        }
        m_condition.notify_one();
    }

    // Blocks until a socket is available. Returns INVALID_SOCKET once the queue is closed, even when it still
    // holds sockets.
    SOCKET pop() {
        std::unique_lock lock(m_mutex);
        m_condition.wait(lock, [this] { return m_closed || !m_sockets.empty(); });
        return m_closed ? INVALID_SOCKET : TakeFront();
    }

    // Returns the next socket without blocking, even from a closed queue. Returns INVALID_SOCKET when there
    // is none.
    SOCKET tryPop() {
        std::lock_guard lock(m_mutex);
        return m_sockets.empty() ? INVALID_SOCKET : TakeFront();
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
    SOCKET TakeFront() {
        const SOCKET socket = m_sockets.front();
        m_sockets.pop();
        return socket;
    }

    std::mutex m_mutex;
    std::condition_variable m_condition;
    std::queue<SOCKET> m_sockets;
    bool m_closed = false;
};
