#pragma once

#include <deque>
#include <mutex>

#include <winbase.h>

#include "winhost/core/Clock.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/PolledDevice.h"

namespace winhost {

class CompletionPort final : public Object {
  public:
    // The end of one request.
    struct Packet {
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        DWORD error = ERROR_SUCCESS;
        DWORD bytes = 0;
    };

    // From now on threads that wait for a packet lead this device.
    void Serve(std::weak_ptr<PolledDevice> device);
    // Wakes the threads that wait, so that one of them leads the device. False when there is none.
    bool Nudge();

    void Post(const Packet& packet);
    // The oldest packet: 0, WAIT_TIMEOUT at the deadline, ERROR_ABANDONED_WAIT_0 when the port's handle is
    // closed.
    DWORD Take(Clock::Deadline deadline, Packet& packet);
    void OnClose() override;

  private:
    std::mutex m_mutex;
    DeviceCondition m_changed;
    std::deque<Packet> m_packets;
    bool m_closed = false;
};

}  // namespace winhost
