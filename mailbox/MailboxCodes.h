// The numbers of the mailbox: one control code for each request to the firmware, one command number for each
// message from it. Shared by the service, the simulated firmware and the tests.
#pragma once

#include <cstddef>
#include <cstdint>

// The largest message that one read of the mailbox delivers, its two-byte trailer included.
inline constexpr size_t kMailboxBufferSize = 0x20000;
inline constexpr size_t kMailboxTrailerSize = 2;

// Device type 0x9C41; write requests carry FILE_WRITE_ACCESS, queries FILE_READ_ACCESS.
namespace MailboxCode {
inline constexpr uint32_t WriteDASHPacket = 0x9C41A400;
inline constexpr uint32_t WriteZELStatus = 0x9C41A410;
inline constexpr uint32_t GetZELVersion = 0x9C416424;
inline constexpr uint32_t WriteNetworkStatusInfo = 0x9C41A428;
inline constexpr uint32_t WriteOsInfo = 0x9C41A42C;
inline constexpr uint32_t WriteIPCompleteInformation = 0x9C41A430;
inline constexpr uint32_t WriteCloseSocketcmd = 0x9C41A434;
inline constexpr uint32_t WriteNwInfo = 0x9C41A438;  // shared with WriteMultiNwInfo; told apart by size
inline constexpr uint32_t WriteMultiNwInfo = 0x9C41A438;
inline constexpr uint32_t WriteKVMPacket = 0x9C41A43D;
inline constexpr uint32_t AllocateLogBuffer = 0x9C416448;
inline constexpr uint32_t ReleaseLogBuffer = 0x9C41644C;
inline constexpr uint32_t GetMPMStatus = 0x9C416458;
inline constexpr uint32_t WriteShutdownLaptop = 0x9C41A460;
inline constexpr uint32_t GetCloudCertInfo = 0x9C416468;
inline constexpr uint32_t WriteUserConsent = 0x9C41A47C;
inline constexpr uint32_t GetDomainInfo = 0x9C416480;
inline constexpr uint32_t WriteWiFiSyncInfo = 0x9C41A484;
inline constexpr uint32_t WriteADInfo = 0x9C41A488;
inline constexpr uint32_t WriteWinRetCode = 0x9C41A48C;
inline constexpr uint32_t WriteEncodedBuffer = 0x9C41A491;
inline constexpr uint32_t SendEncodedDrvFrameBuffer = 0x9C41A491;
inline constexpr uint32_t WriteCapabilityConfig = 0x9C41A494;
inline constexpr uint32_t WriteDisplayConfig = 0x9C41A498;
inline constexpr uint32_t WriteCSRResponse = 0x9C41A49C;
inline constexpr uint32_t WritePwdUpdateStatus = 0x9C41A4A0;
}  // namespace MailboxCode

// What the host tells of itself with WriteZELStatus.
enum ZELServiceState : uint32_t {
    kServiceUp = 1,
    kServiceDown = 2,
    kServiceUpInSafeBoot = 3,
    kServiceUpInSafeBootWithNetworking = 4,
};

// What the firmware asks of the host: the next-to-last byte of a message.
enum MpmCommand : uint8_t {
    MPM_ZEL_CMD_DASH_DATA = 8,
    MPM_ZEL_CMD_KVM_DATA = 9,
    MPM_ZEL_CMD_SOFTWARE_UPGRADE = 10,
    MPM_ZEL_CMD_INDICATION_SUBSCRIBE = 11,
    MPM_ZEL_CMD_INDICATION_EVENT = 12,
    MPM_ZEL_CMD_HOST_SLEEP_LIGHT = 19,
    MPM_ZEL_CMD_HOST_CYCLE_SOFT = 21,
    MPM_ZEL_CMD_HOST_OFF_HARD = 22,
    MPM_ZEL_CMD_HOST_HIBERNATE = 23,
    MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE = 28,
    MPM_ZEL_CMD_REBOOT_NONDASH = 33,
    MPM_ZEL_CMD_VNC_SOC_CLOSE = 35,
    MPM_ZEL_CMD_S0i3_RESUME = 37,
    MPM_ZEL_CMD_KVM_ENABLE_STATUS = 38,
    MPM_ZEL_CMD_KVM_IP_PORT_INFO = 39,
    MPM_ZEL_CMD_GET_KVM_CONSENT = 40,
    MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET = 41,
    MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER = 48,
    MPM_ZEL_CMD_GET_DISPAY_CONFIG = 49,
    MPM_ZEL_CMD_CSR = 50,
    MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD = 51,
    MPM_ZEL_SAFEBOOT = 52,
};
