#include "kvm/DisplayManager.h"

#include "base/Log.h"
#include "mailbox/FirmwareLevels.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kName = "DoInitLUXKVM";

}  // namespace

DisplayManager::DisplayManager(KVMAgent& agent, DisplayMgr& mgr)
    : m_agent(agent), m_capture(mgr, m_bLuxKvmEnabled), m_app(m_capture) {}

bool DisplayManager::IsDisplayMode() const {
    return g_pServiceState->m_vorkVersion >= FirmwareLevel::DisplayKvm && m_bLuxKvmEnabled;
}

bool DisplayManager::DoInitLUXKVM() {
    if (!IsDisplayMode()) return true;
    m_capture.Start();
    m_app.Start();
    LogInfo("LUX_KVM: %s: Created m_pKVMDisplayMgrThreadObj: %p m_pZelKvmAppThreadObj %p", kName,
            m_capture.Object(), m_app.Object());
    if (!m_agent.LaunchKVMAgent(m_bLuxKvmEnabled)) {
        LogError("LUX_KVM:%s: Launch KVM_Agent failed", kName);
        return false;
    }
    LogInfo("LUX_KVM:LaunchKVMAgent success");
    return true;
}

void DisplayManager::SignalStop() {
    m_capture.SignalStop();
    m_app.SignalStop();
}

void DisplayManager::EndThreads() {
    SignalStop();
    m_capture.StopIfStarted();
    m_app.StopIfStarted();
}
