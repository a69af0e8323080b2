// Stand-in for the system's wlanapi.dll, for a PC whose WLAN service a test describes by a file (WlanFile.h).
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "tests/windows/wlanapi/WlanClients.h"

namespace {

constexpr DWORD kPlainKey = 4;           // WLAN_PROFILE_GET_PLAINTEXT_KEY
constexpr DWORD kWriteAccess = 0x70023;  // WLAN_WRITE_ACCESS
constexpr DWORD kInvalidState = 5023;    // ERROR_INVALID_STATE
constexpr DWORD kConnected = wlan_interface_state_connected;
constexpr auto kOpen = static_cast<DWORD>(DOT11_AUTH_ALGO_80211_OPEN);

// What stands in place of a key for a caller that does not ask for the plain one.
constexpr const char* kProtectedKey = "01000000D08C9DDF0115D1118C7A00C04FC297EB00000000";

// Makes the call fail when the test wants it, otherwise runs `work`. Returns and records the error.
template <class Work>
DWORD Call(const std::string& name, Work work) {
    const WlanFile file = WlanFile::Read();
    DWORD error = file.Number("fail " + name);
    if (!error) error = work(file);
    RecordCall(name, error);
    return error;
}

template <class Work>
DWORD CallOfClient(const std::string& name, HANDLE client, Work work) {
    return Call(name, [&](const WlanFile& file) {
        const DWORD error = WlanClients::Instance().Check(client, file);
        return error ? error : work(file);
    });
}

// A call that asks about the network to which the interface is connected.
template <class Work>
DWORD CallOfConnection(const std::string& name, HANDLE client, const GUID* guid, Work work) {
    return CallOfClient(name, client, [&](const WlanFile& file) -> DWORD {
        if (!guid) return ERROR_INVALID_PARAMETER;
        if (!IsEqualGUID(*guid, kWlanInterface)) return ERROR_NOT_FOUND;
        if (file.Number("state") != kConnected) return kInvalidState;
        return work(file);
    });
}

// Zeroed; WlanFreeMemory frees it.
template <class T>
T* Allocate(size_t size = sizeof(T)) {
    return static_cast<T*>(HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, size));
}

std::wstring Wide(const std::string& utf8) {
    const int size = static_cast<int>(utf8.size());
    std::wstring text(static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0)), 0);
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, text.data(), static_cast<int>(text.size()));
    return text;
}

template <size_t N>
void CopyWide(WCHAR (&field)[N], const std::string& utf8) {
    const std::wstring text = Wide(utf8);
    std::copy_n(text.begin(), std::min(text.size(), N - 1), field);
}

DOT11_SSID SsidOf(const WlanFile& file) {
    const std::string bytes = file.Text("ssid");
    DOT11_SSID ssid{};
    ssid.uSSIDLength = static_cast<ULONG>(std::min<size_t>(bytes.size(), DOT11_SSID_MAX_LENGTH));
    std::memcpy(ssid.ucSSID, bytes.data(), ssid.uSSIDLength);
    return ssid;
}

bool IsSame(const DOT11_SSID& one, const DOT11_SSID& other) {
    return one.uSSIDLength == other.uSSIDLength &&
           std::memcmp(one.ucSSID, other.ucSSID, one.uSSIDLength) == 0;
}

WLAN_CONNECTION_ATTRIBUTES* MakeAttributes(const WlanFile& file) {
    auto* const attributes = Allocate<WLAN_CONNECTION_ATTRIBUTES>();
    attributes->isState = wlan_interface_state_connected;
    attributes->wlanConnectionMode = wlan_connection_mode_profile;
    CopyWide(attributes->strProfileName, file.Text("profile"));
    WLAN_ASSOCIATION_ATTRIBUTES& association = attributes->wlanAssociationAttributes;
    association.dot11Ssid = SsidOf(file);
    association.dot11BssType = dot11_BSS_type_infrastructure;
    association.wlanSignalQuality = 80;
    association.ulRxRate = association.ulTxRate = 866'700;
    WLAN_SECURITY_ATTRIBUTES& security = attributes->wlanSecurityAttributes;
    security.dot11AuthAlgorithm = static_cast<DOT11_AUTH_ALGORITHM>(file.Number("auth"));
    security.dot11CipherAlgorithm = static_cast<DOT11_CIPHER_ALGORITHM>(file.Number("cipher"));
    security.bSecurityEnabled = file.Number("auth") != kOpen;
    return attributes;
}

// Gives the first element of that name another text.
void ReplaceText(std::string& xml, const std::string& element, const char* text) {
    const size_t start = xml.find("<" + element + ">");
    if (start == std::string::npos) return;
    const size_t from = start + element.size() + 2, end = xml.find("</" + element + ">", from);
    if (end != std::string::npos) xml.replace(from, end - from, text);
}

}  // namespace

DWORD WINAPI WlanOpenHandle(DWORD clientVersion, PVOID reserved, PDWORD negotiatedVersion, PHANDLE client) {
    return Call("WlanOpenHandle", [&](const WlanFile& file) -> DWORD {
        if (clientVersion == 0 || reserved || !negotiatedVersion || !client) return ERROR_INVALID_PARAMETER;
        if (file.Number("run") == 0) return ERROR_SERVICE_NOT_ACTIVE;
        *negotiatedVersion = std::min<DWORD>(clientVersion, 2);
        *client = WlanClients::Instance().Open(file);
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI WlanCloseHandle(HANDLE client, PVOID reserved) {
    return Call("WlanCloseHandle", [&](const WlanFile& file) -> DWORD {
        if (reserved) return ERROR_INVALID_PARAMETER;
        // A client of an earlier run is freed too, in spite of the error.
        const DWORD error = WlanClients::Instance().Check(client, file);
        WlanClients::Instance().Close(client);
        return error;
    });
}

DWORD WINAPI WlanRegisterNotification(HANDLE client, DWORD source, BOOL ignoreDuplicate,
                                      WLAN_NOTIFICATION_CALLBACK callback, PVOID context, PVOID reserved,
                                      PDWORD previousSource) {
    return CallOfClient("WlanRegisterNotification", client, [&](const WlanFile&) -> DWORD {
        if (reserved || previousSource) return ERROR_INVALID_PARAMETER;
        WlanClients::Instance().Register(client, {source, ignoreDuplicate != FALSE, callback, context});
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI WlanEnumInterfaces(HANDLE client, PVOID reserved, PWLAN_INTERFACE_INFO_LIST* list) {
    return CallOfClient("WlanEnumInterfaces", client, [&](const WlanFile& file) -> DWORD {
        if (reserved || !list) return ERROR_INVALID_PARAMETER;
        *list = Allocate<WLAN_INTERFACE_INFO_LIST>(offsetof(WLAN_INTERFACE_INFO_LIST, InterfaceInfo) +
                                                   sizeof(WLAN_INTERFACE_INFO));
        (*list)->dwNumberOfItems = 1;
        WLAN_INTERFACE_INFO& info = (*list)->InterfaceInfo[0];
        info.InterfaceGuid = kWlanInterface;
        CopyWide(info.strInterfaceDescription, "Wi-Fi");
        info.isState = static_cast<WLAN_INTERFACE_STATE>(file.Number("state"));
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI WlanQueryInterface(HANDLE client, const GUID* guid, WLAN_INTF_OPCODE opcode, PVOID reserved,
                                PDWORD size, PVOID* data, PWLAN_OPCODE_VALUE_TYPE type) {
    const std::string name = "WlanQueryInterface:" + std::to_string(opcode);
    return CallOfConnection(name, client, guid, [&](const WlanFile& file) -> DWORD {
        if (reserved || !size || !data) return ERROR_INVALID_PARAMETER;
        if (opcode == wlan_intf_opcode_current_connection) {
            *data = MakeAttributes(file);
            *size = sizeof(WLAN_CONNECTION_ATTRIBUTES);
        } else if (opcode == wlan_intf_opcode_channel_number) {
            auto* const channel = Allocate<ULONG>();
            *channel = file.Number("channel");
            *data = channel;
            *size = sizeof *channel;
        } else {
            return ERROR_NOT_SUPPORTED;
        }
        if (type) *type = wlan_opcode_value_type_query_only;
        return ERROR_SUCCESS;
    });
}

// A profile can also be read while its network is not connected.
DWORD WINAPI WlanGetProfile(HANDLE client, const GUID* guid, LPCWSTR name, PVOID reserved, LPWSTR* text,
                            DWORD* flags, PDWORD access) {
    return CallOfClient("WlanGetProfile", client, [&](const WlanFile&) -> DWORD {
        if (!guid || !name || reserved || !text) return ERROR_INVALID_PARAMETER;
        if (!IsEqualGUID(*guid, kWlanInterface)) return ERROR_NOT_FOUND;
        const std::wstring wideName = name;
        auto xml = ReadProfile({wideName.begin(), wideName.end()});
        if (!xml) return ERROR_NOT_FOUND;
        if (!flags || !(*flags & kPlainKey)) {
            ReplaceText(*xml, "protected", "true");
            ReplaceText(*xml, "keyMaterial", kProtectedKey);
        }
        const std::wstring wide = Wide(*xml);
        *text = Allocate<WCHAR>((wide.size() + 1) * sizeof(WCHAR));
        std::copy(wide.begin(), wide.end(), *text);
        if (access) *access = kWriteAccess;
        return ERROR_SUCCESS;
    });
}

DWORD WINAPI WlanGetNetworkBssList(HANDLE client, const GUID* guid, const PDOT11_SSID ssid,
                                   DOT11_BSS_TYPE type, BOOL securityEnabled, PVOID reserved,
                                   PWLAN_BSS_LIST* list) {
    return CallOfConnection("WlanGetNetworkBssList", client, guid, [&](const WlanFile& file) -> DWORD {
        if (reserved || !list) return ERROR_INVALID_PARAMETER;
        const DOT11_SSID own = SsidOf(file);
        const bool isSecured = file.Number("auth") != kOpen;
        const bool matches = !ssid || (IsSame(*ssid, own) && type != dot11_BSS_type_independent &&
                                       isSecured == (securityEnabled != FALSE));
        *list = Allocate<WLAN_BSS_LIST>();
        (*list)->dwTotalSize = sizeof(WLAN_BSS_LIST);
        if (!matches || file.Number("frequency") == 0) return ERROR_SUCCESS;
        (*list)->dwNumberOfItems = 1;
        WLAN_BSS_ENTRY& entry = (*list)->wlanBssEntries[0];
        entry.dot11Ssid = own;
        entry.dot11BssType = dot11_BSS_type_infrastructure;
        entry.ulChCenterFrequency = file.Number("frequency");
        return ERROR_SUCCESS;
    });
}

VOID WINAPI WlanFreeMemory(PVOID memory) {
    if (!memory) return;
    HeapFree(GetProcessHeap(), 0, memory);
    RecordCall("WlanFreeMemory", ERROR_SUCCESS);
}
