#include "winhost/process/ProcessObject.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcFs.h"
#include "winhost/process/ProcessWatcher.h"

namespace winhost {
namespace {

bool IsLinuxProcessGone(const ProcessEntry& entry) {
    const auto stat = ReadProcessStat(static_cast<pid_t>(entry.id));
    return !stat || stat->ended || stat->startTime != entry.startTime;
}

bool IsDescribed(const PcDescription& pc, const ProcessEntry& entry) {
    return std::any_of(pc.processes.begin(), pc.processes.end(), [&](const DescribedProcess& process) {
        return process.pid == entry.id && process.name == entry.name;
    });
}

DWORD ErrorOf(int error) {
    switch (error) {
        case ESRCH:
        case EPERM:
            return ERROR_ACCESS_DENIED;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        default:
            return ERROR_NO_SYSTEM_RESOURCES;
    }
}

// Of the process that the entry was made of; with ESRCH when that has gone.
testbed::Descriptor OpenPidfdOf(const ProcessEntry& entry) {
    testbed::Descriptor pidfd = OpenPidfd(static_cast<pid_t>(entry.id));
    // The id may belong to another process by now.
    if (!pidfd || !IsLinuxProcessGone(entry)) return pidfd;
    pidfd = testbed::Descriptor();
    errno = ESRCH;
    return pidfd;
}

DWORD TerminateLinuxProcess(const ProcessEntry& entry) {
    const testbed::Descriptor pidfd = OpenPidfdOf(entry);
    if (!pidfd) return ErrorOf(errno);
    const bool sent = syscall(SYS_pidfd_send_signal, pidfd.Get(), SIGKILL, nullptr, 0) == 0;
    return sent ? DWORD{ERROR_SUCCESS} : ErrorOf(errno);
}

DWORD TerminateDescribed(const ProcessEntry& entry) {
    bool removed = false;
    Pc::Instance().Change([&](PcDescription& pc) {
        removed = std::erase_if(pc.processes, [&](const DescribedProcess& process) {
                      return process.pid == entry.id && process.name == entry.name;
                  }) != 0;
    });
    return removed ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

}  // namespace

// For the length of a wait.
class ProcessEnd::Watch {
  public:
    // Throws std::system_error. A process that has gone needs no watch: the wait sees it at once.
    explicit Watch(const std::shared_ptr<ProcessEnd>& process) {
        auto lookAgain = [process] { process->LookAgain(); };
        if (process->m_entry.described) {
            m_key = ProcessWatcher::Instance().WatchDescription(std::move(lookAgain));
        } else if (testbed::Descriptor pidfd = OpenPidfdOf(process->m_entry)) {
            m_key = ProcessWatcher::Instance().Watch(std::move(pidfd), std::move(lookAgain));
        } else if (errno != ESRCH) {
            throw std::system_error(errno, std::generic_category(), "pidfd_open");
        }
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;
    ~Watch() {
        if (m_key != 0) ProcessWatcher::Instance().Forget(m_key);
    }

  private:
    ProcessWatcher::Key m_key = 0;
};

bool ProcessEnd::HasEnded() const {
    return m_entry.described ? !IsDescribed(Pc::Instance().Description(), m_entry)
                             : IsLinuxProcessGone(m_entry);
}

DWORD ProcessEnd::Wait(Clock::Deadline deadline) {
    if (HasEnded()) return WAIT_OBJECT_0;
    if (Clock::Instance().Steady() >= deadline) return WAIT_TIMEOUT;
    try {
        const Watch watch(shared_from_this());
        return WaitableObject::Wait(deadline);
    } catch (const std::system_error& error) {
        return Fail(ErrorOf(error.code().value()), WAIT_FAILED);
    }
}

void ProcessEnd::LookAgain() {
    // Behind a thread that has looked and is not asleep yet.
    { std::lock_guard lock(m_mutex); }
    m_signalled.notify_all();
}

DWORD Process::Wait(Clock::Deadline deadline) {
    if (Allows(SYNCHRONIZE)) return ProcessEnd::Wait(deadline);
    return Fail(ERROR_ACCESS_DENIED, WAIT_FAILED);
}

bool Process::AllowsQuery() const {
    return Allows(PROCESS_QUERY_INFORMATION) || Allows(PROCESS_QUERY_LIMITED_INFORMATION);
}

bool Process::IsOwn() const {
    return !Entry().described && Entry().id == static_cast<DWORD>(getpid());
}

DWORD Process::Terminate() {
    return Entry().described ? TerminateDescribed(Entry()) : TerminateLinuxProcess(Entry());
}

std::shared_ptr<Process> FindProcessObject(HANDLE handle) {
    if (reinterpret_cast<intptr_t>(handle) != -1) return HandleTable::Instance().Find<Process>(handle);
    const auto own = FindProcess(static_cast<DWORD>(getpid()));
    return own ? std::make_shared<Process>(*own, PROCESS_ALL_ACCESS) : nullptr;
}

}  // namespace winhost

using winhost::Fail;
using winhost::FindProcessObject;
using winhost::HandleTable;

namespace {

constexpr DWORD kGenericRights = GENERIC_READ | GENERIC_WRITE | GENERIC_EXECUTE | GENERIC_ALL;

}  // namespace

HANDLE OpenProcess(DWORD access, BOOL inheritHandle, DWORD processId) {
    WINHOST_GATE("OpenProcess", nullptr);
    if (inheritHandle || access & kGenericRights) return Fail(ERROR_NOT_SUPPORTED, HANDLE{});
    const auto entry = winhost::FindProcess(processId);
    if (!entry) return Fail(ERROR_INVALID_PARAMETER, HANDLE{});
    return winhost::AddHandle(std::make_shared<winhost::Process>(*entry, access));
}

BOOL TerminateProcess(HANDLE handle, UINT exitCode) {
    WINHOST_GATE("TerminateProcess", FALSE);
    const auto process = FindProcessObject(handle);
    if (!process) return Fail(ERROR_INVALID_HANDLE, FALSE);
    if (!process->Allows(PROCESS_TERMINATE)) return Fail(ERROR_ACCESS_DENIED, FALSE);
    if (process->IsOwn()) _exit(static_cast<int>(exitCode));
    // The process ends by a signal, which carries no code.
    winhost::Pc::Instance().Record(winhost::CallArgument{"TerminateProcess", "uExitCode", exitCode});
    const DWORD error = process->Terminate();
    return error == ERROR_SUCCESS ? TRUE : Fail(error, FALSE);
}

DWORD GetProcessId(HANDLE handle) {
    WINHOST_GATE("GetProcessId", 0);
    const auto process = FindProcessObject(handle);
    if (!process) return Fail(ERROR_INVALID_HANDLE, DWORD{0});
    return process->AllowsQuery() ? process->Entry().id : Fail(ERROR_ACCESS_DENIED, DWORD{0});
}

BOOL ProcessIdToSessionId(DWORD processId, DWORD* sessionId) {
    WINHOST_GATE("ProcessIdToSessionId", FALSE);
    const auto entry = winhost::FindProcess(processId);
    if (!sessionId || !entry) return Fail(ERROR_INVALID_PARAMETER, FALSE);
    *sessionId = entry->session;
    return TRUE;
}
