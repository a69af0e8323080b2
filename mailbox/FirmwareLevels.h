// The firmware levels from which the service turns on a function. The level is uVORKVersion, in tenths: 21 is
// 2.1.
//
// A new threshold is one row here. The simulated firmware shows the rows.
#pragma once

#include <cstdint>

// ROW(name, first level, what it turns on)
#define FIRMWARE_LEVELS(ROW)                                                                               \
    ROW(AllAdapters, 20, "all network adapters go out in WriteMultiNwInfo; below it one, in WriteNwInfo")  \
    ROW(Cloud, 21, "cloud provisioning; the cloud client stops and starts with the network and suspend")   \
    ROW(CloudDomains, 31, "cloud provisioning reads GetDomainInfo as well")                                \
    ROW(KvmRetries, 31, "client data that WriteKVMPacket could not deliver is sent again")                 \
    ROW(UserConsent, 40, "the consent question is put to the user and its answer is sent")                 \
    ROW(WiFiSync, 40, "the Wi-Fi profile goes out in WriteWiFiSyncInfo")                                   \
    ROW(CloudDomainMatch, 40, "a start of the cloud client first compares the domains")                    \
    ROW(TimeZone, 45, "the time zone goes out in WriteADInfo")                                             \
    ROW(DashCloseByFirmware, 45, "after a client's close, command 41 or the idle limit closes the socket") \
    ROW(DisplayKvm, 50, "KVM by the firmware: screen capture and WriteCapabilityConfig")

namespace FirmwareLevel {
#define LEVEL(name, threshold, effect) inline constexpr uint32_t name = threshold;
FIRMWARE_LEVELS(LEVEL)
#undef LEVEL
}  // namespace FirmwareLevel

struct FirmwareLevelRow {
    const char* name;
    uint32_t threshold;
    const char* effect;
};

inline constexpr FirmwareLevelRow kFirmwareLevels[] = {
#define LEVEL(name, threshold, effect) {#name, threshold, effect},
    FIRMWARE_LEVELS(LEVEL)
#undef LEVEL
};
