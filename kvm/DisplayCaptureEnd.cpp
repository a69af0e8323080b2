// The start and the end of DisplayCaptureThread.
#include <system_error>

#include "base/Log.h"
#include "kvm/DisplayCaptureThread.h"
#include "state/ServiceState.h"

namespace {

constexpr DWORD kRound = 1000;  // milliseconds
constexpr int kPatientRounds = 25;
constexpr DWORD kForcedPoll = 100;
constexpr int kForcedAttempts = 20;

}  // namespace

DisplayCaptureThread::DisplayCaptureThread(DisplayMgr& mgr, const std::atomic<uint8_t>& enabled)
    : m_mgr(mgr), m_enabled(enabled), m_stopEvent(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

DisplayCaptureThread::~DisplayCaptureThread() {
    SignalStop();
    StopIfStarted();
    if (!m_pKVMDisplayMgrThreadObj) return;
    if (m_bIsKVMDisplayMgrThreadClosed) {
        m_pKVMDisplayMgrThreadObj->join();
    } else {
        m_pKVMDisplayMgrThreadObj->detach();
    }
}

void DisplayCaptureThread::Start() {
    std::lock_guard lock(m_threadMutex);
    DropEndedThread();
    if (m_pKVMDisplayMgrThreadObj) return;
    m_bIsKVMDisplayMgrThreadClosed.exchange(0);
    m_displayEvent.Open();
    try {
        m_pKVMDisplayMgrThreadObj = g_pServiceState->m_detachedThreads.StartOwned([this] {
            OpenOwnHandle();
            Run();
        });
    } catch (const std::system_error&) {
        m_displayEvent.Close();
        throw;
    }
    if (!m_pKVMDisplayMgrThreadObj) m_displayEvent.Close();
}

// A stop that ends the thread by force needs it.
void DisplayCaptureThread::OpenOwnHandle() {
    const HANDLE handle = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, GetCurrentThreadId());
    if (!handle) LogWarn("%s: OpenThread failed with error: %d", "DisplayCaptureThread", GetLastError());
    std::lock_guard lock(m_threadMutex);
    m_threadHandle.Reset(handle);
}

// The caller holds m_threadMutex. The object of a thread that failed stays until the next stop.
void DisplayCaptureThread::DropEndedThread() {
    if (!m_isLeftBehind) return;
    if (m_isTerminating && HasTerminated()) TerminateDisplayMgr();
    if (!m_bIsKVMDisplayMgrThreadClosed) return;
    m_isLeftBehind = false;
    m_pKVMDisplayMgrThreadObj->join();
    m_pKVMDisplayMgrThreadObj.reset();
}

void DisplayCaptureThread::SignalStop() {
    SetEvent(m_stopEvent.Get());
}

void DisplayCaptureThread::StopIfStarted() {
    if (Object()) Stop();
}

void DisplayCaptureThread::Stop() {
    std::lock_guard one(m_stopMutex);
    std::thread::id thread;
    {
        std::lock_guard lock(m_threadMutex);
        if (m_pKVMDisplayMgrThreadObj) thread = m_pKVMDisplayMgrThreadObj->get_id();
    }
    if (thread == std::thread::id()) {
        LogInfo("LUX_KVM: DisplayCaptureThread exit complete");
        return;
    }
    SetDisplayMgrEvent(DispEvtCaptureEncodeExit);
    const End end = AwaitEnd(thread);
    if (end == End::Unknown) {
        LogWarn("LUX_KVM: DisplayCaptureThread does not end and is left");
        std::lock_guard lock(m_threadMutex);
        m_isLeftBehind = true;
        return;
    }
    LogInfo("LUX_KVM: Waiting for the DisplayCaptureThread to exit");
    Join(end);
    LogInfo("LUX_KVM: DisplayCaptureThread exit complete");
}

// The object of a terminated thread stays until the next start.
void DisplayCaptureThread::Join(End end) {
    std::lock_guard lock(m_threadMutex);
    m_isLeftBehind = end == End::Terminated;
    if (m_isLeftBehind) return;
    m_pKVMDisplayMgrThreadObj->join();
    m_pKVMDisplayMgrThreadObj.reset();
}

DisplayCaptureThread::End DisplayCaptureThread::AwaitEnd(std::thread::id thread) {
    const auto waiting = g_pServiceState->m_mailBoxDriverInterface.WaitingFor(thread);
    for (int round = 1; !m_bIsKVMDisplayMgrThreadClosed; ++round) {
        Sleep(kRound);
        LogInfo("LUX_KVM: m_bIsKVMDisplayMgrThreadClosed %d ", m_bIsKVMDisplayMgrThreadClosed.load());
        if (round == kPatientRounds && !m_bIsKVMDisplayMgrThreadClosed) return ForceEnd(thread);
    }
    return End::Returned;
}

// A thread that waits for the firmware ends by itself when its request is cancelled. Otherwise it is
// terminated as soon as it is inside a call in which it can be.
DisplayCaptureThread::End DisplayCaptureThread::ForceEnd(std::thread::id thread) {
    LogInfo("LUX_KVM: m_pKVMDisplayMgrThreadObj forcefully exited");
    for (int attempt = 0; attempt < kForcedAttempts; ++attempt) {
        if (m_bIsKVMDisplayMgrThreadClosed) return End::Returned;
        if (Terminate()) {
            TerminateDisplayMgr();
            return End::Terminated;
        }
        g_pServiceState->m_mailBoxDriverInterface.CancelRequestsFor(thread);
        Sleep(kForcedPoll);
    }
    return m_bIsKVMDisplayMgrThreadClosed ? End::Returned : End::Unknown;
}

// Returns true when the thread has ended without having taken its last steps.
bool DisplayCaptureThread::Terminate() {
    std::lock_guard lock(m_threadMutex);
    if (!m_isTerminating) {
        if (!m_threadHandle || !m_mgrCalls.Seize()) return false;
        m_isTerminating = TerminateThread(m_threadHandle.Get(), 0);
        if (!m_isTerminating) m_mgrCalls.Release();
    }
    return m_isTerminating && HasTerminated();
}

// The end follows the return of TerminateThread. The caller holds m_threadMutex.
bool DisplayCaptureThread::HasTerminated() {
    if (WaitForSingleObject(m_threadHandle.Get(), kForcedPoll) != WAIT_OBJECT_0) return false;
    g_pServiceState->m_detachedThreads.ForgetTerminated();
    m_isTerminating = false;
    m_mgrCalls.Reset();
    return true;
}

void DisplayCaptureThread::SetDisplayMgrEvent(DisplayEvent event) {
    switch (m_displayEvent.Post(event)) {
        case PostedEvents::Outcome::Posted:
            LogDebug("LUX_KVM: SetDisplayMgrEvent posted %d", event);
            break;
        case PostedEvents::Outcome::NobodyWaits:
            LogInfo("LUX_KVM: m_DisplayMgrEvent null, nothing to post %d", event);
            break;
        case PostedEvents::Outcome::Failed:
            LogError("LUX_KVM: SetDisplayMgrEvent SetEvent failed Error: %lu", GetLastError());
    }
}

void DisplayCaptureThread::SetConfig(const DisplayConfig& config) {
    std::lock_guard lock(m_threadMutex);
    m_config = config;
}

const void* DisplayCaptureThread::Object() {
    std::lock_guard lock(m_threadMutex);
    return m_pKVMDisplayMgrThreadObj.get();
}
