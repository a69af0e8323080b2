// The firmware's commands, one row each. The number is the next-to-last byte of a message.
//
// A new command is one row here and its handler in service/CommandDispatch.cpp. The simulated firmware, the
// fuzz targets and the tests iterate the rows; mailbox/MailboxTables.h has them as an array.
#pragma once

#include <cstdint>

// ROW(number, name, payload, handler)
#define FIRMWARE_COMMANDS(ROW)                                                                  \
    ROW(8, MPM_ZEL_CMD_DASH_DATA, StreamBytes, HandleDashData)                                  \
    ROW(9, MPM_ZEL_CMD_KVM_DATA, StreamBytes, HandleKvmData)                                    \
    ROW(10, MPM_ZEL_CMD_SOFTWARE_UPGRADE, TextBytes, HandleSoftwareUpgrade)                     \
    ROW(11, MPM_ZEL_CMD_INDICATION_SUBSCRIBE, IndicationDestination, HandleIndicationSubscribe) \
    ROW(12, MPM_ZEL_CMD_INDICATION_EVENT, TextBytes, HandleIndicationEvent)                     \
    ROW(19, MPM_ZEL_CMD_HOST_SLEEP_LIGHT, NoRecord, HandleSleepLight)                           \
    ROW(21, MPM_ZEL_CMD_HOST_CYCLE_SOFT, NoRecord, HandleCycleSoft)                             \
    ROW(22, MPM_ZEL_CMD_HOST_OFF_HARD, NoRecord, HandleOffHard)                                 \
    ROW(23, MPM_ZEL_CMD_HOST_HIBERNATE, NoRecord, HandleHibernate)                              \
    ROW(28, MPM_ZEL_CMD_HOST_OFF_SOFT_GRACE, NoRecord, HandleOffSoftGrace)                      \
    ROW(33, MPM_ZEL_CMD_REBOOT_NONDASH, NoRecord, HandleRebootNondash)                          \
    ROW(35, MPM_ZEL_CMD_VNC_SOC_CLOSE, NoRecord, HandleVncSocClose)                             \
    ROW(37, MPM_ZEL_CMD_S0i3_RESUME, NoRecord, HandleS0i3Resume)                                \
    ROW(38, MPM_ZEL_CMD_KVM_ENABLE_STATUS, NoRecord, HandleKvmEnableStatus)                     \
    ROW(39, MPM_ZEL_CMD_KVM_IP_PORT_INFO, KvmPeer, HandleKvmPeer)                               \
    ROW(40, MPM_ZEL_CMD_GET_KVM_CONSENT, UserConsentQuestion, HandleConsentRequest)             \
    ROW(41, MPM_ZEL_CMD_WEBUI_CLOSE_SOCKET, NoRecord, HandleWebuiCloseSocket)                   \
    ROW(48, MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER, NoRecord, HandleGetEncodedFramebuffer)         \
    ROW(49, MPM_ZEL_CMD_GET_DISPAY_CONFIG, NoRecord, HandleGetDisplayConfig)                    \
    ROW(50, MPM_ZEL_CMD_CSR, CsrRequest, HandleCsr)                                             \
    ROW(51, MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD, ADPasswordUpdate, HandlePasswordUpdate)          \
    ROW(52, MPM_ZEL_SAFEBOOT, SafebootState, HandleSafeboot)

enum MpmCommand : uint8_t {
#define ENUMERATOR(number, name, payload, handler) name = number,
    FIRMWARE_COMMANDS(ENUMERATOR)
#undef ENUMERATOR
};
