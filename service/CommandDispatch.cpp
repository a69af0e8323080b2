#include "service/CommandDispatch.h"

#include <array>

#include "base/Log.h"
#include "hostcontrol/SoftwareUpgrade.h"
#include "identity/AdPassword.h"
#include "identity/CsrEnrolment.h"
#include "mailbox/MailboxCodes.h"
#include "service/ZELService.h"

namespace {

constexpr const char* kName = "ProcessRead";

// The payload is the beginning of the read, which has a trailer behind it.
struct FirmwareMessage {
    const uint8_t* payload;
    uint32_t length;     // of the payload
    uint32_t bytesRead;  // of the whole read
};

// The latched power action follows the answer that reports it to the console.
void HandleDashData(ZELService& service, const FirmwareMessage& message) {
    if (message.length == 0) return;
    service.m_dashClientInterface.updateDataToClient(message.payload, message.length);
    service.m_hostControl.RunPendingPowerOption();
}

void HandleKvmData(ZELService& service, const FirmwareMessage& message) {
    if (message.length != 0)
        service.m_kvmClientInterface.SendDataToKVMClient(message.payload, message.length);
}

void HandleSoftwareUpgrade(ZELService&, const FirmwareMessage& message) {
    LogInfo("%s: Software upgrade command received: MPM_ZEL_CMD_SOFTWARE_UPGRADE", kName);
    if (message.length != 0) StartSoftwareUpgrade(message.payload, message.length);
}

// An empty payload unsubscribes.
void HandleIndicationSubscribe(ZELService& service, const FirmwareMessage& message) {
    LogInfo("%s: Indication subscribe command received: MPM_ZEL_CMD_INDICATION_SUBSCRIBE", kName);
    service.m_indications.SubscribeIndication(message.payload, message.length);
}

void HandleIndicationEvent(ZELService& service, const FirmwareMessage& message) {
    LogInfo("%s: Indication event command received: MPM_ZEL_CMD_INDICATION_EVENT", kName);
    if (message.length != 0) service.m_indications.PostIndication(message.payload, message.length);
}

// --- power: the action follows the next DASH data ---

void HandleSleepLight(ZELService& service, const FirmwareMessage&) {
    LogInfo("%s: Sleep Command received: MPM_ZEL_CMD_HOST_SLEEP_LIGHT", kName);
    service.m_hostControl.SetPowerOption(kPowerSleep);
}

void HandleCycleSoft(ZELService& service, const FirmwareMessage&) {
    LogInfo("%s: Reboot Command received: MPM_ZEL_CMD_HOST_CYCLE_SOFT", kName);
    service.m_hostControl.SetPowerOption(kPowerReboot);
}

void HandleOffHard(ZELService& service, const FirmwareMessage&) {
    LogInfo("%s: Shutdown Command received: MPM_ZEL_CMD_HOST_OFF_HARD", kName);
    service.m_hostControl.SetPowerOption(kPowerShutdown);
}

void HandleHibernate(ZELService& service, const FirmwareMessage&) {
    LogInfo("%s: Hibernate Command received: MPM_ZEL_CMD_HOST_HIBERNATE", kName);
    service.m_hostControl.SetPowerOption(kPowerHibernate);
}

void HandleOffSoftGrace(ZELService& service, const FirmwareMessage&) {
    LogInfo("%s: Sleep Command received: MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE", kName);
    service.m_hostControl.SetPowerOption(kPowerShutdownG2S5);
}

// The only power action that is not latched.
void HandleRebootNondash(ZELService& service, const FirmwareMessage&) {
    LogInfo("%s: Reboot Command Nondash received: MPM_ZEL_CMD_REBOOT_NONDASH", kName);
    if (!service.m_hostControl.DoSytemShutdown(kPowerReboot))
        LogInfo("%s: DoSytemShutdown false for Reboot_Command_Nondash", kName);
}

void HandleS0i3Resume(ZELService& service, const FirmwareMessage&) {
    LogInfo("MPM_ZEL_CMD_S0i3_RESUME send data to MPM upon resume from S0i3");
    service.m_nubaClient.stopNUBA();
    service.WakeAndUpdateMPM(true);
}

// --- KVM ---

void HandleVncSocClose(ZELService& service, const FirmwareMessage&) {
    service.m_kvmClientInterface.CloseKVMSession();
}

void HandleKvmEnableStatus(ZELService& service, const FirmwareMessage&) {
    LogInfo("MPM_ZEL_CMD_KVM_ENABLE_STATUS says that KVM is now enabled");
    service.m_kvmClientInterface.EnableKVM();
}

void HandleKvmPeer(ZELService& service, const FirmwareMessage& message) {
    LogInfo("MPM_ZEL_CMD_KVM_IP_PORT_INFO gives IP and Port to trust for KVM");
    if (message.length != 0) service.m_kvmClientInterface.SetKVMIPAndPort(message.payload, message.length);
}

void HandleConsentRequest(ZELService& service, const FirmwareMessage& message) {
    LogInfo("MPM_ZEL_CMD_GET_KVM_CONSENT asks for User consent entry");
    LogInfo("Setting Check for user consent");
    service.m_userConsent.Ask(message.payload, message.length);
    LogInfo("MPM_ZEL_CMD_GET_KVM_CONSENT exit");
}

void HandleGetEncodedFramebuffer(ZELService& service, const FirmwareMessage&) {
    LogInfo("LUX_KVM: MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER receveid");
    service.m_kvmClientInterface.m_displayManager.SetDisplayMgrEvent(DispEvtCaptureEncodeStart);
}

void HandleGetDisplayConfig(ZELService& service, const FirmwareMessage&) {
    LogInfo("LUX_KVM: MPM_ZEL_CMD_GET_DISPAY_CONFIG receveid");
    if (service.m_kvmClientInterface.BeginDisplaySession()) {
        LogInfo("LUX_KVM: DoInitLUXKVM success");
    } else {
        LogError("%s: DoInitKVM failed.", kName);
    }
}

void HandleSafeboot(ZELService& service, const FirmwareMessage& message) {
    LogInfo("MPM_ZEL_SAFEBOOT command received");
    // The whole read, trailer included.
    service.m_kvmClientInterface.HandleSafebootState(message.payload, message.bytesRead);
}

// --- others ---

void HandleWebuiCloseSocket(ZELService& service, const FirmwareMessage&) {
    LogInfo("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET asks for DASH socket close as webUI is served");
    service.m_dashClientInterface.CloseSocketInZEL();
    LogInfo("MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET exit");
}

void HandleCsr(ZELService&, const FirmwareMessage& message) {
    LogInfo("MPM_ZEL_CMD_CSR received");
    HandleCsrCommand(message.payload, message.length);
}

void HandlePasswordUpdate(ZELService&, const FirmwareMessage& message) {
    LogInfo("MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD received");
    HandleAdPasswordCommand(message.payload, message.length);
}

using Handler = void (*)(ZELService&, const FirmwareMessage&);

// By command number; null for an unknown command.
constexpr std::array<Handler, 256> kHandlers = [] {
    std::array<Handler, 256> handlers{};
#define SET_HANDLER(number, name, payload, handler) handlers[number] = handler;
    FIRMWARE_COMMANDS(SET_HANDLER)
#undef SET_HANDLER
    return handlers;
}();

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
    if (const Handler handler = kHandlers[command])
        handler(*service, {buffer, length, bytesRead});
    else
        LogInfo("%s: Unknown Command received from driver: 0x%x", kName, command);
}
