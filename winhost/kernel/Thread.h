#pragma once

#include <memory>

#include <winbase.h>

#include "winhost/core/CallingThread.h"
#include "winhost/core/WaitableObject.h"

namespace winhost {

// A thread of the process that has called winhost; signalled when it has ended.
class Thread : public WaitableObject, public CallingThread {
  public:
    void End();

  private:
    Taken TryTake() override { return m_ended ? Taken::Yes : Taken::No; }

    bool m_ended = false;
};

// What a handle of a thread names.
class ThreadHandle : public WaitableObject {
  public:
    ThreadHandle(std::shared_ptr<Thread> thread, DWORD access)
        : m_thread(std::move(thread)), m_access(access) {}

    bool Allows(DWORD access) const { return (m_access & access) == access; }
    Thread& Named() const { return *m_thread; }
    // Needs SYNCHRONIZE.
    DWORD Wait(Clock::Deadline deadline) override;

  private:
    Taken TryTake() override { return Taken::No; }

    const std::shared_ptr<Thread> m_thread;
    const DWORD m_access;
};

}  // namespace winhost
