// The listener thread. Each EnableKVM command starts one, and it runs until the clean-up is complete.
#include <exception>
#include <system_error>

#include "base/Log.h"
#include "connection/ConnectionAnnouncer.h"
#include "kvm/KVMClientInterface.h"
#include "kvm/SocketWait.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kName = "RunServerKVMThread";
constexpr DWORD kClosingPoll = 500;  // milliseconds
constexpr DWORD kListenRetry = 5000;
// A port scan closes its connection within this time. A viewer sends nothing in it, because the server speaks
// first.
constexpr DWORD kScanPatience = 100;

}  // namespace

// The entry function of the listener thread.
void KVMClientInterface::ServeKVM() {
    try {
        RunServerKVMThread();
    } catch (const std::exception& exception) {
        LogError("%s: ended by an exception: %s", kName, exception.what());
        TriggerKVMShutdown();
        KVMCleanupCommon();
    }
}

void KVMClientInterface::RunServerKVMThread() {
    AwaitEarlierSession();
    while (m_kvmState == kKvmEnabled) {
        LogInfo("Create SSH socket");
        if (m_kvmSocket.CreateSocket(kKvmPort) != 0) {
            LogError("%s: Sleep and retry creating SSH port socket...", kName);
            if (!g_pServiceState->SleepUnlessStopping(kListenRetry)) break;
            continue;
        }
        if (m_kvmState != kKvmEnabled) break;
        if (!ServeClients()) {
            LogError("%s: DoInitKVM failed, closing the KVM connection and do complete cleanup", kName);
            TriggerKVMShutdown();
        }
    }
    // The listening socket may have been created after the shutdown closed the previous one.
    m_kvmSocket.CloseBaseSocket();
    KVMCleanupCommon();
}

// Waits until the earlier session has finished closing. The clean-up of its agent is the last step of that.
void KVMClientInterface::AwaitEarlierSession() {
    while (IsEarlierSessionClosing() && !m_bShutdownTriggered &&
           g_pServiceState->SleepUnlessStopping(kClosingPoll)) {
    }
    {
        std::lock_guard lock(m_sessionMutex);
        m_sessionMayBegin = !m_cleanUpRuns;
    }
    m_kvmState = kKvmEnabled;
    // A shutdown that arrived before this session began must not be lost, because another thread is waiting
    // for this thread to end.
    if (m_bShutdownTriggered || g_pServiceState->m_bServiceStopping) m_kvmState = kKvmClosing;
}

bool KVMClientInterface::IsEarlierSessionClosing() {
    std::lock_guard lock(m_sessionMutex);
    return m_cleanUpRuns || (m_kvmState == kKvmClosing && m_agentCleanUps > 0);
}

// Accepts connections on one listening socket. Returns false when a session could not begin, and true when
// the listening socket is closed.
bool KVMClientInterface::ServeClients() {
    while (m_kvmState == kKvmEnabled) {
        LogInfo("Calling KVM Socket Accept");
        sockaddr_in peer{};
        UniqueSocket socket = m_kvmSocket.AcceptSocket(true, peer);
        if (!socket) {
            LogError("%s: KVM socket Accept failed, closing the base socket and retry...", kName);
            m_kvmSocket.CloseBaseSocket();
            return true;
        }
        if (!IsTrusted(peer)) {
            LogError("%s: KVM IP validation failed, closing the base socket and retry...", kName);
            // It is required that this socket is neither closed nor used.
            m_untrustedSockets.push_back(std::move(socket));
            m_kvmSocket.CloseBaseSocket();
            return true;
        }
        // Only a running session has something to lose by a client that leaves at once.
        if (m_bSessionActive && ClosesWithin(socket.Get(), kScanPatience)) {
            LogInfo("%s: Client closed the connection at once, the session continues", kName);
            continue;
        }
        switch (BeginSession(std::move(socket), peer)) {
            case Beginning::Begun:
                break;
            case Beginning::Failed:
                return false;
            case Beginning::Overtaken:
                LogInfo("%s: The session has been cleaned up, no client can connect", kName);
                TriggerKVMShutdown();
        }
    }
    return true;
}

KVMClientInterface::Beginning KVMClientInterface::BeginSession(UniqueSocket socket, const sockaddr_in& peer) {
    const bool isDisplayMode = m_displayManager.IsDisplayMode();
    const Beginning beginning =
        isDisplayMode ? DoInitPostAccept(std::move(socket)) : DoInitKVM(std::move(socket));
    if (beginning == Beginning::Failed) SetKVMStatus(false);
    if (beginning != Beginning::Begun) return beginning;
    if (!MarkConnected()) {
        // The agent was started after the clean-up had removed the others.
        StartAgentCleanUp();
        return Beginning::Overtaken;
    }
    m_announcer.Announce(kKvmPort, peer);
    LogInfo("Response returned for KVM request from Mailbox driver");
    StartDataRecvThread();
    return Beginning::Begun;
}

bool KVMClientInterface::IsTrusted(const sockaddr_in& peer) const {
    const TrustedPeer trusted = m_kvmTrusted;
    return trusted.m_kvmTrustedIP == 0 || trusted.m_kvmTrustedIP == peer.sin_addr.s_addr;
}

KVMClientInterface::Beginning KVMClientInterface::DoInitKVM(UniqueSocket socket) {
    LogInfo("%s: Entered", "DoInitKVM");
    if (!TakeClient(std::move(socket))) return Beginning::Overtaken;
    if (!m_agent.LaunchKVMAgent(m_displayManager.m_bLuxKvmEnabled)) {
        LogError("%s: Launch KVM_Agent failed", "DoInitKVM");
        return Beginning::Failed;
    }
    return Beginning::Begun;
}

// The agent and the display's threads already run.
KVMClientInterface::Beginning KVMClientInterface::DoInitPostAccept(UniqueSocket socket) {
    if (!TakeClient(std::move(socket))) return Beginning::Overtaken;
    LogInfo("LUX_KVM: DoInitPostAccept , setting AppEvtStartKVMOperation");
    m_displayManager.SetKvmAppEvent(AppEvtStartKVMOperation);
    return Beginning::Begun;
}

// Returns false, and closes the socket, when no session may begin.
bool KVMClientInterface::TakeClient(UniqueSocket socket) {
    std::lock_guard lock(m_sessionMutex);
    if (!m_sessionMayBegin) return false;
    RequireCleanUp();
    const SOCKET client = socket.Get();
    m_sessionSockets.push_back(std::move(socket));
    m_clientSocket = client;
    m_bSessionActive.exchange(1);
    return true;
}

// Returns false when the session has been cleaned up since it took its client.
bool KVMClientInterface::MarkConnected() {
    std::lock_guard lock(m_sessionMutex);
    if (!m_sessionMayBegin) return false;
    SetKVMStatus(true);
    m_kvmSocketState = kKvmClientConnected;
    return true;
}

// Does nothing for a session that has been cleaned up: its receive thread was joined then, if there was one.
void KVMClientInterface::StartDataRecvThread() {
    std::lock_guard lock(m_sessionMutex);
    if (!m_sessionMayBegin) return;
    try {
        if (!m_pRecvThreadObj)
            m_pRecvThreadObj = g_pServiceState->m_detachedThreads.StartOwned([this] { KVMDataRecvThread(); });
    } catch (const std::system_error&) {
        // The failure is logged below.
    }
    if (!m_pRecvThreadObj)
        LogError("%s: Failed to start the KVM data receiver thread", "StartDataRecvThread");
}
