// Handlers of the firmware's KVM commands.
#include <algorithm>
#include <cstring>

#include "base/Log.h"
#include "hostcontrol/HostControl.h"
#include "kvm/KVMClientInterface.h"
#include "mailbox/FirmwareLevels.h"
#include "state/ServiceState.h"

namespace {

constexpr uint32_t kSafebootConnected = 1;
constexpr uint32_t kSafebootDisconnected = 2;

}  // namespace

void KVMClientInterface::EnableKVM() {
    LogInfo("Launching KVM Thread");
    {
        std::lock_guard lock(m_threadObjectMutex);
        if (!m_pKVMThreadObj) {
            m_bShutdownTriggered = 0;
            m_pKVMThreadObj = g_pServiceState->m_detachedThreads.StartOwned([this] { ServeKVM(); });
        }
    }
    LogInfo("Setting KVM Enabled to %s", m_kvmState != kKvmNeverEnabled ? "true" : "false");
}

void KVMClientInterface::SetKVMIPAndPort(const void* payload, size_t length) {
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

void KVMClientInterface::ForgetTrustedAddress() {
    TrustedPeer peer = m_kvmTrusted;
    peer.m_kvmTrustedIP = 0;
    m_kvmTrusted = peer;
}

void KVMClientInterface::CloseKVMSession() {
    LogInfo("MPM_ZEL_CMD_VNC_SOC_CLOSE received");
    TriggerKVMShutdown();
    if (g_pServiceState->m_vorkVersion >= FirmwareLevel::DisplayKvm) m_displayManager.m_bLuxKvmEnabled = 0;
    if (const std::unique_ptr<std::thread> thread = TakeThread()) thread->join();
}

bool KVMClientInterface::BeginDisplaySession() {
    {
        std::lock_guard lock(m_sessionMutex);
        if (m_cleanUpRuns) {
            LogInfo("LUX_KVM: the earlier session is being cleaned up, no session begins");
            return false;
        }
        RequireCleanUp();
        m_displayManager.m_bLuxKvmEnabled = 1;
    }
    return m_displayManager.DoInitLUXKVM();
}

void KVMClientInterface::HandleSafebootState(const void* payload, size_t size) {
    uint32_t state = 0;
    std::memcpy(&state, payload, std::min(size, sizeof state));
    switch (state) {
        case kSafebootConnected:
            LogInfo("Safeboot connected state received from driver");
            m_kvmState = kKvmEnabled;
            RequireCleanUp();
            SetKVMStatus(true);
            m_agent.LaunchKVMAgent(m_displayManager.m_bLuxKvmEnabled);
            break;
        case kSafebootDisconnected:
            LogInfo("Safeboot disconnected state received from driver");
            SetKVMStatus(false);
            // As at the end of every session: a listener ends, and the next one waits until the agent has
            // been removed, which resets this state.
            m_bShutdownTriggered = 1;
            m_kvmState = kKvmClosing;
            KVMCleanupCommon();
            m_kvmSocket.CloseBaseSocket();
            m_hostControl.DoSytemShutdown(kPowerReboot);
            break;
        default:
            LogInfo("Safeboot unknown state received from driver: %d", state);
    }
}
