// The firmware's commands, and the end of a session.
#include "kvm/KVMSessionControl.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "dash/NewRequest.h"
#include "base/Log.h"
#include "mailbox/FirmwareLevels.h"
#include "service/ZELService.h"

namespace {

constexpr uint32_t kSafebootConnected = 1;
constexpr uint32_t kSafebootDisconnected = 2;
constexpr DWORD kAgentPatience = 2000;  // milliseconds
constexpr DWORD kAgentPoll = 100;

}  // namespace

KVMSessionControl::~KVMSessionControl() {
    for (const SOCKET socket : m_untrustedSockets)
        closesocket(socket);
}

void KVMSessionControl::EnableKVM() {
    LogInfo("Launching KVM Thread");
    {
        std::lock_guard lock(m_threadObjectMutex);
        if (!m_pKVMThreadObj) {
            m_bShutdownTriggered = 0;
            m_pKVMThreadObj = g_pZELService->m_detachedThreads.StartOwned([this] { ServeKVM(); });
        }
    }
    LogInfo("Setting KVM Enabled to %s", m_kvmState != kKvmNeverEnabled ? "true" : "false");
}

void KVMSessionControl::SetKVMIPAndPort(const void* payload, size_t length) {
    LogInfo("Setting KVM IP and port");
    if (m_kvmState != kKvmEnabled) {
        LogInfo("KVM is disabled");
        return;
    }
    TrustedPeer peer = m_kvmTrusted;
    std::memcpy(&peer, payload, std::min(length, sizeof peer));
    m_kvmTrusted = peer;
    LogInfo("IP: 0x%x & Port: 0x%x", peer.m_kvmTrustedIP, peer.m_kvmTrustedPort);
}

void KVMSessionControl::ForgetTrustedAddress() {
    TrustedPeer peer = m_kvmTrusted;
    peer.m_kvmTrustedIP = 0;
    m_kvmTrusted = peer;
}

void KVMSessionControl::CloseKVMSession() {
    LogInfo("MPM_ZEL_CMD_VNC_SOC_CLOSE received");
    TriggerKVMShutdown();
    if (g_pZELService->m_vorkVersion >= FirmwareLevel::DisplayKvm) m_bLuxKvmEnabled = 0;
    JoinThread();
}

void KVMSessionControl::HandleSafebootState(const void* payload, size_t size) {
    uint32_t state = 0;
    std::memcpy(&state, payload, std::min(size, sizeof state));
    switch (state) {
        case kSafebootConnected:
            LogInfo("Safeboot connected state received from driver");
            m_kvmState = kKvmEnabled;
            SetKVMStatus(true);
            g_pZELService->m_kvmClientInterface.m_agent.LaunchKVMAgent();
            break;
        case kSafebootDisconnected:
            LogInfo("Safeboot disconnected state received from driver");
            SetKVMStatus(false);
            KVMCleanupCommon();
            g_pZELService->m_hostControl.DoSytemShutdown(kPowerReboot);
            break;
        default:
            LogInfo("Safeboot unknown state received from driver: %d", state);
    }
}

void KVMSessionControl::TriggerKVMShutdown() {
    m_bShutdownTriggered = 1;
    m_kvmState = kKvmClosing;
    // The signal: the blocking accept fails.
    m_kvmSocket.CloseBaseSocket();
}

void KVMSessionControl::SignalEnd() {
    std::lock_guard lock(m_threadObjectMutex);
    if (m_pKVMThreadObj) TriggerKVMShutdown();
}

void KVMSessionControl::JoinThread() {
    std::unique_ptr<std::thread> thread;
    {
        std::lock_guard lock(m_threadObjectMutex);
        thread = std::move(m_pKVMThreadObj);
    }
    if (thread) thread->join();
}

void KVMSessionControl::SetKVMStatus(bool running) {
    g_pZELService->KVMStatus = running ? "YES" : "NO";
    g_pZELService->m_statusFile.UpdateStatusFile();
}

void KVMSessionControl::KVMCleanupCommon() {
    LogInfo("Do KVM Cleanup");
    DoKVMCleanUp();
    LogInfo("%s: Exiting Thread Handler", "KVMCleanupCommon");
}

void KVMSessionControl::DoKVMCleanUp() {
    const uint16_t state = m_kvmSocketState.exchange(kKvmCleanedUp);
    LogInfo("%s called with socket state: %d", "DoKVMCleanUp", state);
    if (state == kKvmCleanedUp) return;
    SetKVMStatus(false);
    g_pZELService->m_kvmClientInterface.DoCleanUp();
    m_bLuxKvmEnabled = 0;
    // In a safe boot the firmware isn't told.
    if (g_pZELService->m_bootMode == 0) g_pZELService->m_mailBoxDriverInterface.WriteCloseSocketcmd(kKvmPort);
    m_kvmTrusted = TrustedPeer{};
    LogInfo("Cleaned Tarvix KVM App if still open.");
    StartAgentCleanUp();
}

void KVMSessionControl::StartAgentCleanUp() {
    ++m_agentCleanUps;
    const auto cleanUp = [this] {
        RemoveAgentLater();
        // Unless a session in safe boot has begun meanwhile.
        uint8_t closing = kKvmClosing;
        m_kvmState.compare_exchange_strong(closing, kKvmNeverEnabled);
        --m_agentCleanUps;
    };
    bool started = false;
    try {
        started = g_pZELService->m_detachedThreads.Start(cleanUp);
    } catch (const std::system_error&) {
        LogWarn("%s: no thread to remove the agent, the next session waits for it", "StartAgentCleanUp");
    }
    if (!started) cleanUp();
}

// Every agent goes, also one that a new session starts within these 2 seconds. A service that stops waits no
// longer than there is an agent.
void KVMSessionControl::RemoveAgentLater() {
    if (!g_pZELService->SleepUnlessStopping(kAgentPatience)) {
        for (DWORD waited = 0; waited < kAgentPatience && KVMAgent::IsKVMAgentRunning(); waited += kAgentPoll)
            Sleep(kAgentPoll);
    }
    KVMAgent::RemoveKVMAgent();
}
