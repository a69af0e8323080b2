#include "cloud/LibraryThread.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "base/Handles.h"
#include "base/Log.h"
#include "state/ServiceState.h"

namespace {

constexpr DWORD kPoll = 100;  // milliseconds
constexpr int kAttempts = 20;

}  // namespace

// The thread shares it, so that it may outlive the owner.
struct LibraryThread::State {
    TerminableCalls calls;
    std::mutex mutex;  // guards the handle and hasOwner
    UniqueHandle handle;
    bool hasOwner = true;
    std::atomic<bool> hasReturned{false};

    // A thread that is terminated needs it.
    void OpenOwnHandle() {
        const HANDLE own = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, GetCurrentThreadId());
        if (!own) LogWarn("%s: OpenThread failed with error: %d", "NubaClientThread", GetLastError());
        const std::lock_guard lock(mutex);
        handle.Reset(own);
    }

    // The event belongs to the owner, which gives it to its next thread.
    void ReportReturn(HANDLE ended) {
        hasReturned = true;
        const std::lock_guard lock(mutex);
        if (hasOwner) SetEvent(ended);
    }

    bool TerminateInsideCall() {
        const std::lock_guard lock(mutex);
        if (!handle || !calls.Seize()) return false;
        if (TerminateThread(handle.Get(), 0) &&
            WaitForSingleObject(handle.Get(), kPoll * kAttempts) == WAIT_OBJECT_0)
            return true;
        calls.Release();
        return false;
    }
};

std::unique_ptr<LibraryThread> LibraryThread::Start(HANDLE ended, Body body) {
    const auto state = std::make_shared<State>();
    auto thread = g_pServiceState->m_detachedThreads.StartOwned([state, ended, body = std::move(body)] {
        state->OpenOwnHandle();
        body(state->calls);
        state->ReportReturn(ended);
    });
    if (!thread) return nullptr;
    return std::unique_ptr<LibraryThread>(new LibraryThread(ended, state, std::move(thread)));
}

LibraryThread::LibraryThread(HANDLE ended, std::shared_ptr<State> state, std::unique_ptr<std::thread> thread)
    : m_ended(ended), m_state(std::move(state)), m_thread(std::move(thread)) {}

LibraryThread::~LibraryThread() {
    if (m_thread->joinable()) m_thread->detach();
    const std::lock_guard lock(m_state->mutex);
    m_state->hasOwner = false;
}

bool LibraryThread::HasReturned() const {
    return m_state->hasReturned;
}

bool LibraryThread::AwaitEnd(DWORD milliseconds) const {
    if (WaitForSingleObject(m_ended, milliseconds) != WAIT_FAILED) return HasReturned();
    // The event could not be created.
    for (DWORD waited = 0; !HasReturned() && waited < milliseconds; waited += kPoll)
        Sleep(kPoll);
    return HasReturned();
}

bool LibraryThread::Terminate() {
    for (int attempt = 0; attempt < kAttempts && !HasReturned(); ++attempt) {
        if (m_state->TerminateInsideCall()) {
            m_thread->detach();
            g_pServiceState->m_detachedThreads.ForgetTerminated();
            return true;
        }
        Sleep(kPoll);
    }
    return HasReturned();
}
