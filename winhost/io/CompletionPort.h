#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include <winbase.h>

#include "winhost/core/Clock.h"
#include "winhost/core/HandleTable.h"

namespace winhost {

class CompletionPort : public Object {
  public:
    // The end of one request.
    struct Packet {
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        DWORD error = ERROR_SUCCESS;
        DWORD bytes = 0;
    };

    void Post(const Packet& packet);
    // The oldest packet: 0, WAIT_TIMEOUT at the deadline, ERROR_ABANDONED_WAIT_0 when the port's handle is
    // closed.
    DWORD Take(Clock::Deadline deadline, Packet& packet);
    void OnClose() override;

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Packet> m_packets;
    bool m_closed = false;
};

}  // namespace winhost
