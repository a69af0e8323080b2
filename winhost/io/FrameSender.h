// The sending half of a connection to the firmware.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include <minwindef.h>

#include "firmware/link/LinkProtocol.h"

namespace winhost {

class FrameSender {
  public:
    explicit FrameSender(int socket) : m_socket(socket) {}

    // Any thread; never blocks for the peer. One system call while the peer takes what it is sent; what it
    // does not is kept and sent by a thread of its own, which lives until Stop. 0, ERROR_DEVICE_NOT_CONNECTED
    // when the peer has gone, or ERROR_NO_SYSTEM_RESOURCES when it is so far behind that no more is kept.
    DWORD Send(const mpmlink::Header& header, const void* payload);

    // Ends the thread; the socket has to be shut down already. Nothing is sent any more.
    void Stop();

  private:
    void KeepRest(const mpmlink::Header& header, const void* payload, size_t sent);
    void SendKept();

    const int m_socket;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<char> m_kept;  // from m_keptSent on
    size_t m_keptSent = 0;
    bool m_stopping = false;
    bool m_failed = false;
    std::thread m_thread;
};

}  // namespace winhost
