// Ends a session, for either side.
#include <exception>
#include <memory>
#include <system_error>

#include "base/Log.h"
#include "connection/ConnectionAnnouncer.h"
#include "kvm/KVMClientInterface.h"
#include "reporting/StatusFile.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kCleanUp = "DoCleanUp";
constexpr DWORD kAgentPatience = 2000;  // milliseconds
constexpr DWORD kAgentPoll = 100;

}  // namespace

KVMClientInterface::KVMClientInterface(ConnectionAnnouncer& announcer, StatusFile& statusFile,
                                       HostControl& hostControl, DisplayMgr& displayMgr)
    : m_displayManager(m_agent, displayMgr),
      m_announcer(announcer),
      m_statusFile(statusFile),
      m_hostControl(hostControl) {}

KVMClientInterface::~KVMClientInterface() {
    m_bSessionActive.exchange(0);
    CloseSockets();
    JoinRecvThread();
}

void KVMClientInterface::TriggerKVMShutdown() {
    m_bShutdownTriggered = 1;
    m_kvmState = kKvmClosing;
    // Closing the socket makes the blocking accept() fail, which signals the listener thread.
    m_kvmSocket.CloseBaseSocket();
}

void KVMClientInterface::SignalEnd() {
    m_displayManager.SignalStop();
    {
        std::lock_guard lock(m_threadObjectMutex);
        if (m_pKVMThreadObj) TriggerKVMShutdown();
    }
    m_displayManager.EndThreads();
}

std::unique_ptr<std::thread> KVMClientInterface::TakeThread() {
    std::lock_guard lock(m_threadObjectMutex);
    return std::move(m_pKVMThreadObj);
}

void KVMClientInterface::SetKVMStatus(bool running) {
    g_pServiceState->KVMStatus = running ? "YES" : "NO";
    m_statusFile.UpdateStatusFile();
}

void KVMClientInterface::KVMCleanupCommon() {
    LogInfo("Do KVM Cleanup");
    DoKVMCleanUp();
    LogInfo("%s: Exiting Thread Handler", "KVMCleanupCommon");
}

void KVMClientInterface::DoKVMCleanUp() {
    const uint16_t state = EnterCleanUp();
    LogInfo("%s called with socket state: %d", "DoKVMCleanUp", state);
    if (state == kKvmCleanedUp) return;
    // Runs also when an exception leaves the clean-up.
    const std::shared_ptr<void> over(nullptr, [this](void*) {
        std::lock_guard lock(m_sessionMutex);
        m_cleanUpRuns = false;
    });
    CleanUpSession();
}

// Returns the socket state from before. From here on no session begins.
uint16_t KVMClientInterface::EnterCleanUp() {
    std::lock_guard lock(m_sessionMutex);
    m_sessionMayBegin = false;
    const uint16_t state = m_kvmSocketState.exchange(kKvmCleanedUp);
    if (state != kKvmCleanedUp) m_cleanUpRuns = true;
    return state;
}

// The state kKvmCleanedUp belongs to the previous session. A new session needs its own clean-up even when it
// fails at once.
void KVMClientInterface::RequireCleanUp() {
    uint16_t before = kKvmCleanedUp;
    m_kvmSocketState.compare_exchange_strong(before, kKvmNoClient);
}

void KVMClientInterface::CleanUpSession() {
    SetKVMStatus(false);
    DoCleanUp();
    m_displayManager.m_bLuxKvmEnabled = 0;
    // In safe boot the service sends no close notification to the firmware.
    if (g_pServiceState->m_bootMode == 0)
        g_pServiceState->m_mailBoxDriverInterface.WriteCloseSocketcmd(kKvmPort);
    m_kvmTrusted = TrustedPeer{};
    LogInfo("Cleaned Tarvix KVM App if still open.");
    StartAgentCleanUp();
}

void KVMClientInterface::DoCleanUp() {
    m_bSessionActive.exchange(0);
    try {
        m_agent.TerminateKVMAgent();
        LogInfo("called TerminateKVMAgent");
    } catch (const std::exception& exception) {
        LogError("TerminateKVMAgent()  failed with error: %s", exception.what());
    } catch (...) {
        LogError("TerminateKVMAgent()  failed with error: %s", "Unknown exception");
    }
    m_displayManager.StopDisplayCaptureThread();
    m_displayManager.StopZelKvmAppThread();
    CloseSockets();
    JoinRecvThread();
    LogInfo("%s, function exit", kCleanUp);
}

// closesocket() runs without shutdown() first. It alone unblocks the receive thread and any sender.
void KVMClientInterface::CloseSockets() {
    std::lock_guard lock(m_sessionMutex);
    m_clientSocket = INVALID_SOCKET;
    if (m_sessionSockets.empty()) return;
    // The last one is the client's.
    const SOCKET socket = m_sessionSockets.back().Release();
    if (closesocket(socket) == 0) {
        LogInfo("%s: closesocket() API successful on KVM socket", kCleanUp);
    } else {
        LogError("closesocket() API failed with error: %d", WSAGetLastError());
    }
    m_sessionSockets.clear();
}

// The owning pointer stays until the thread has ended, so that no second receive thread starts meanwhile.
void KVMClientInterface::JoinRecvThread() {
    std::thread* thread = nullptr;
    {
        std::lock_guard lock(m_sessionMutex);
        thread = m_pRecvThreadObj.get();
    }
    if (!thread) return;
    LogInfo("%s: Waiting for the DataRecvThread to exit", kCleanUp);
    const auto waiting = g_pServiceState->m_mailBoxDriverInterface.WaitingFor(thread->get_id());
    thread->join();
    LogInfo("%s: DataRecvThread exit complete", kCleanUp);
    std::lock_guard lock(m_sessionMutex);
    m_pRecvThreadObj.reset();
}

void KVMClientInterface::StartAgentCleanUp() {
    ++m_agentCleanUps;
    bool started = false;
    try {
        started = g_pServiceState->m_detachedThreads.Start([this] { CleanUpAgent(); });
    } catch (const std::exception&) {
        LogWarn("%s: no thread to remove the agent, the next session waits for it", "StartAgentCleanUp");
    }
    if (!started) CleanUpAgent();
}

// Ends the closing of the session whether or not the agent could be removed: the next session waits for it.
void KVMClientInterface::CleanUpAgent() {
    try {
        RemoveAgentLater();
    } catch (const std::exception& exception) {
        LogError("%s: ended by an exception: %s", "RemoveAgentLater", exception.what());
    } catch (...) {
        LogError("%s: ended by an exception: %s", "RemoveAgentLater", "Unknown exception");
    }
    // The state changes only if no safe-boot session has begun in the meantime.
    uint8_t closing = kKvmClosing;
    m_kvmState.compare_exchange_strong(closing, kKvmNeverEnabled);
    --m_agentCleanUps;
}

// Removes every agent, including one that a new session starts within these 2 seconds. When the service
// stops, this waits only for as long as an agent runs.
void KVMClientInterface::RemoveAgentLater() {
    if (!g_pServiceState->SleepUnlessStopping(kAgentPatience)) {
        for (DWORD waited = 0; waited < kAgentPatience && KVMAgent::IsKVMAgentRunning(); waited += kAgentPoll)
            Sleep(kAgentPoll);
    }
    KVMAgent::RemoveKVMAgent();
}
