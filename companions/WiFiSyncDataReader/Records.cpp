#include "companions/WiFiSyncDataReader/Records.h"

#include <winsock2.h>
#include <windows.h>
#include <wlanapi.h>

#include <cstdint>
#include <exception>

#include "base/Handles.h"
#include "wifi/WiFiProfile.h"

namespace {

constexpr DWORD kClientVersion = 2;

template <class Record>
std::string BytesOf(const Record& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

// The service looks at the first interface alone.
bool FindConnection(WlanContext& context) {
    PWLAN_INTERFACE_INFO_LIST found = nullptr;
    if (WlanEnumInterfaces(context.client, nullptr, &found) != ERROR_SUCCESS || !found) return false;
    const UniqueWlanMemory owner(found);
    if (found->dwNumberOfItems == 0 || found->InterfaceInfo[0].isState != wlan_interface_state_connected)
        return false;
    context.interfaceGuid = found->InterfaceInfo[0].InterfaceGuid;
    return true;
}

bool Extract(WiFiSyncInfo& record) {
    UniqueWlanHandle client;
    DWORD version = 0;
    if (WlanOpenHandle(kClientVersion, nullptr, &version, client.Receive()) != ERROR_SUCCESS) return false;
    WlanContext context;
    context.client = client.Get();
    return FindConnection(context) && ExtractWiFiProfile(context, nullptr, record) != WiFiProfileCode::Error;
}

}  // namespace

std::string WiFiRecord() {
    WiFiSyncInfo record = EmptyWiFiRecord();
    try {
        if (Extract(record)) return BytesOf(record);
    } catch (const std::exception&) {
        // A profile that is no XML counts as none.
    }
    return BytesOf(EmptyWiFiRecord());
}

std::string BootModeRecord() {
    return BytesOf(static_cast<uint32_t>(GetSystemMetrics(SM_CLEANBOOT)));
}
