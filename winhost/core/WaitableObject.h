// An object that threads wait for. Each has a mutex and a condition of its own: no wait meets another
// object's.
#pragma once

#include <mutex>

#include <winbase.h>

#include "winhost/core/Clock.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/PolledDevice.h"

namespace winhost {

class WaitableObject : public Object {
  public:
    static WaitableObject* Of(Object& object) { return object.AsWaitable(); }
    WaitableObject* AsWaitable() final { return this; }
    // Takes the object for the calling thread as soon as it is signalled: WAIT_OBJECT_0 or WAIT_ABANDONED, or
    // WAIT_TIMEOUT at the deadline. WAIT_FAILED with the calling thread's error where a kind can't be waited
    // for.
    virtual DWORD Wait(Clock::Deadline deadline) {
        std::unique_lock lock(m_mutex);
        Taken taken = Taken::No;
        m_signalled.WaitUntil(lock, deadline,
                              [&] { return taken != Taken::No || (taken = TryTake()) != Taken::No; });
        if (taken == Taken::No) return WAIT_TIMEOUT;
        return taken == Taken::Abandoned ? WAIT_ABANDONED : WAIT_OBJECT_0;
    }

  protected:
    enum class Taken { No, Yes, Abandoned };

    // Called with m_mutex held, by the thread that waits.
    virtual Taken TryTake() = 0;

    std::mutex m_mutex;
    DeviceCondition m_signalled;
};

}  // namespace winhost
