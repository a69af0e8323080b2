#pragma once

#include "winhost/core/WaitableObject.h"

namespace winhost {

class Event final : public WaitableObject {
  public:
    Event(bool manualReset, bool signalled) : m_manualReset(manualReset), m_isSet(signalled) {}

    void Set();
    void Reset();

    // Resets the event for a request that sets it at its end. False while it serves a request to another
    // device. A thread that waits for the event does the work of the device until the request has ended.
    bool BeginRequest(const std::shared_ptr<PolledDevice>& device);
    // `completed` is false for a request that was refused, which doesn't set the event.
    void EndRequest(bool completed);
    // Wakes the threads that wait, so that one of them leads the device. False when there is none.
    bool Nudge();

  private:
    Taken TryTake() override;
    void Signal(std::unique_lock<std::mutex> lock);

    const bool m_manualReset;
    bool m_isSet;
    size_t m_requests = 0;  // that will set it
};

}  // namespace winhost
