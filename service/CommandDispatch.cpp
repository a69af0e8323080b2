#include "service/CommandDispatch.h"

#include "base/Log.h"
#include "mailbox/MailboxCodes.h"
#include "service/ZELService.h"

namespace {

constexpr const char* kName = "ProcessRead";

void HandleS0i3Resume(ZELService* service) {
    LogInfo("MPM_ZEL_CMD_S0i3_RESUME send data to MPM upon resume from S0i3");
    service->WakeAndUpdateMPM(true);
}

void HandleWebuiCloseSocket(ZELService* service) {
    LogInfo("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET asks for DASH socket close as webUI is served");
    service->m_dashClientInterface.CloseSocketInZEL();
    LogInfo("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
}

// The action follows the next DASH data.
void LatchPowerOption(HostControl& hostControl, uint8_t command) {
    switch (command) {
        case MPM_ZEL_CMD_HOST_SLEEP_LIGHT:
            LogInfo("%s: Sleep Command received: MPM_ZEL_CMD_HOST_SLEEP_LIGHT", kName);
            hostControl.SetPowerOption(kPowerSleep);
            break;
        case MPM_ZEL_CMD_HOST_CYCLE_SOFT:
            LogInfo("%s: Reboot Command received: MPM_ZEL_CMD_HOST_CYCLE_SOFT", kName);
            hostControl.SetPowerOption(kPowerReboot);
            break;
        case MPM_ZEL_CMD_HOST_OFF_HARD:
            LogInfo("%s: Shutdown Command received: MPM_ZEL_CMD_HOST_OFF_HARD", kName);
            hostControl.SetPowerOption(kPowerShutdown);
            break;
        case MPM_ZEL_CMD_HOST_HIBERNATE:
            LogInfo("%s: Hibernate Command received: MPM_ZEL_CMD_HOST_HIBERNATE", kName);
            hostControl.SetPowerOption(kPowerHibernate);
            break;
        case MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE:
            LogInfo("%s: Sleep Command received: MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE", kName);
            hostControl.SetPowerOption(kPowerShutdownG2S5);
            break;
    }
}

// The one power action that is not latched.
void HandleRebootNondash(ZELService* service) {
    LogInfo("%s: Reboot Command Nondash received: MPM_ZEL_CMD_REBOOT_NONDASH", kName);
    if (!service->m_hostControl.DoSytemShutdown(kPowerReboot))
        LogInfo("%s: DoSytemShutdown false for Reboot_Command_Nondash", kName);
}

// What was latched follows the answer that tells the console of it.
void HandleDashData(ZELService* service, const uint8_t* payload, uint32_t length) {
    if (length == 0) return;
    service->m_dashClientInterface.updateDataToClient(payload, length);
    service->m_hostControl.RunPendingPowerOption();
}

void HandleConsentRequest(ZELService* service, const uint8_t* payload, uint32_t length) {
    LogInfo("MPM_ZEL_CMD_GET_KVM_CONSENT asks for User consent entry");
    LogInfo("Setting Check for user consent");
    service->m_userConsent.Ask(payload, length);
    LogInfo("MPM_ZEL_CMD_GET_KVM_CONSENT exit");
}

void HandleKvmPeer(ZELService* service, const uint8_t* payload, uint32_t length) {
    LogInfo("MPM_ZEL_CMD_KVM_IP_PORT_INFO gives IP and Port to trust for KVM");
    if (length != 0) service->m_kvmSessionControl.SetKVMIPAndPort(payload, length);
}

}  // namespace

void ReadFromMailBoxDriverThread(ZELService* service) {
    service->m_mailboxReadLoop.Run(
        service->m_mailBoxDriverInterface, service->m_bServiceStopping,
        [service](uint32_t bytesRead, const uint8_t* buffer) { ProcessRead(service, bytesRead, buffer); });
}

void ProcessRead(ZELService* service, uint32_t bytesRead, const uint8_t* buffer) {
    if (bytesRead < kMailboxTrailerSize) {
        LogWarn("%s: message of %u byte(s) is too short for a command, ignored", kName, bytesRead);
        return;
    }
    const uint32_t length = bytesRead - kMailboxTrailerSize;
    const uint8_t command = buffer[length];
    LogInfo("%s: received command from driver %d, bytes read %d", kName, command, length);
    switch (command) {
        case MPM_ZEL_CMD_DASH_DATA:
            HandleDashData(service, buffer, length);
            break;
        case MPM_ZEL_CMD_KVM_DATA:
            if (length != 0) service->m_kvmClientInterface.SendDataToKVMClient(buffer, length);
            break;
        case MPM_ZEL_CMD_SOFTWARE_UPGRADE:
            LogInfo("%s: Software upgrade command received: MPM_ZEL_CMD_SOFTWARE_UPGRADE", kName);
            break;
        case MPM_ZEL_CMD_INDICATION_SUBSCRIBE:
            LogInfo("%s: Indication subscribe command received: MPM_ZEL_CMD_INDICATION_SUBSCRIBE", kName);
            break;
        case MPM_ZEL_CMD_INDICATION_EVENT:
            LogInfo("%s: Indication event command received: MPM_ZEL_CMD_INDICATION_EVENT", kName);
            break;
        case MPM_ZEL_CMD_HOST_SLEEP_LIGHT:
        case MPM_ZEL_CMD_HOST_CYCLE_SOFT:
        case MPM_ZEL_CMD_HOST_OFF_HARD:
        case MPM_ZEL_CMD_HOST_HIBERNATE:
        case MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE:
            LatchPowerOption(service->m_hostControl, command);
            break;
        case MPM_ZEL_CMD_REBOOT_NONDASH:
            HandleRebootNondash(service);
            break;
        case MPM_ZEL_CMD_VNC_SOC_CLOSE:
            service->m_kvmSessionControl.CloseKVMSession();
            break;
        case MPM_ZEL_CMD_S0i3_RESUME:
            HandleS0i3Resume(service);
            break;
        case MPM_ZEL_CMD_KVM_ENABLE_STATUS:
            LogInfo("MPM_ZEL_CMD_KVM_ENABLE_STATUS says that KVM is now enabled");
            service->m_kvmSessionControl.EnableKVM();
            break;
        case MPM_ZEL_CMD_KVM_IP_PORT_INFO:
            HandleKvmPeer(service, buffer, length);
            break;
        case MPM_ZEL_CMD_GET_KVM_CONSENT:
            HandleConsentRequest(service, buffer, length);
            break;
        case MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET:
            HandleWebuiCloseSocket(service);
            break;
        case MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER:
            LogInfo("LUX_KVM: MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER receveid");
            break;
        case MPM_ZEL_CMD_GET_DISPAY_CONFIG:
            LogInfo("LUX_KVM: MPM_ZEL_CMD_GET_DISPAY_CONFIG receveid");
            break;
        case MPM_ZEL_CMD_CSR:
            LogInfo("MPM_ZEL_CMD_CSR received");
            break;
        case MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD:
            LogInfo("MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD received");
            break;
        case MPM_ZEL_SAFEBOOT:
            LogInfo("MPM_ZEL_SAFEBOOT command received");
            // The whole read, trailer included.
            service->m_kvmSessionControl.HandleSafebootState(buffer, bytesRead);
            break;
        default:
            LogInfo("%s: Unknown Command received from driver: 0x%x", kName, command);
    }
}
