// Makes the record for the firmware from the Wi-Fi network that the host is connected to.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <wlanapi.h>

#include <cstdint>
#include <string>

#include "mailbox/WiFiSyncRecord.h"

// Where the extraction gets its data.
struct WlanContext {
    GUID interfaceGuid{};
    HANDLE client = nullptr;  // of the WLAN service; borrowed
    // Fills a record. Set: the record comes from here, and the WLAN service is not called.
    void (*reader)(WiFiSyncInfo* record) = nullptr;
};

enum class WiFiProfileCode : uint32_t { Error = 0, AlreadyKnown = 1, New = 2, Enterprise = 3 };

// A record of zeros with its size.
WiFiSyncInfo EmptyWiFiRecord();

// Fills the record, which the caller has made by EmptyWiFiRecord. A profile that `lastProfile` does not hold
// is stored there; without one every profile is new. Throws std::exception for a profile that is no XML, and
// leaves `lastProfile` as it is then. May block for seconds in the reader. Any thread; the caller guards
// `lastProfile`.
WiFiProfileCode ExtractWiFiProfile(const WlanContext& context, WiFiSyncInfo* lastProfile,
                                   WiFiSyncInfo& record);

// Returns the SSID of the connection, empty when there is none. Any thread.
std::string GetCurrentSSID(const WlanContext& context);
