// A process behind a handle.
#pragma once

#include <memory>

#include <winbase.h>

#include "winhost/core/WaitableObject.h"
#include "winhost/process/ProcessList.h"

namespace winhost {

// Signalled when the process has ended. Nothing is held open for it but while somebody waits.
class ProcessEnd : public WaitableObject, public std::enable_shared_from_this<ProcessEnd> {
  public:
    explicit ProcessEnd(ProcessEntry entry) : m_entry(std::move(entry)) {}

    DWORD Wait(Clock::Deadline deadline) override;
    bool HasEnded() const;
    const ProcessEntry& Entry() const { return m_entry; }

  private:
    class Watch;
    Taken TryTake() override { return HasEnded() ? Taken::Yes : Taken::No; }
    void LookAgain();

    const ProcessEntry m_entry;
};

class Process : public ProcessEnd {
  public:
    Process(ProcessEntry entry, DWORD access) : ProcessEnd(std::move(entry)), m_access(access) {}

    DWORD Wait(Clock::Deadline deadline) override;
    bool Allows(DWORD access) const { return (m_access & access) == access; }
    bool AllowsQuery() const;
    bool IsOwn() const;
    // 0, or a Win32 error.
    DWORD Terminate();

  private:
    const DWORD m_access;
};

// What the calls take: a handle of OpenProcess, or the pseudo handle of the calling process. Null for
// another.
std::shared_ptr<Process> FindProcessObject(HANDLE handle);

}  // namespace winhost
