// The calls of the WLAN API about one interface: its connection, profiles and the BSSs in range.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Guid.h"
#include "winhost/core/WideText.h"
#include "winhost/pc/Pc.h"
#include "winhost/wlan/WlanMemory.h"
#include "winhost/wlan/WlanNetworks.h"

using winhost::AllocateWlanMemory;
using winhost::WlanNetwork;

namespace {

constexpr DWORD kPlainKey = 4;           // WLAN_PROFILE_GET_PLAINTEXT_KEY
constexpr DWORD kWriteAccess = 0x70023;  // WLAN_WRITE_ACCESS
constexpr DWORD kInvalidState = 5023;    // ERROR_INVALID_STATE
constexpr USHORT kPrivacyCapability = 0x10;
constexpr ULONG kSignalQuality = 80;  // percent
constexpr ULONG kRate = 866'000;      // in kbit/s

// The PC with the interface that a call names.
class Query {
  public:
    Query(HANDLE handle, const GUID* guid) {
        if (!guid) {
            m_error = ERROR_INVALID_PARAMETER;
            return;
        }
        if (!winhost::FindWlanClient(handle, m_error)) return;
        for (const auto& wlan : m_pc.wlanInterfaces) {
            if (m_interface || winhost::ParseGuid(wlan.guid) != *guid) continue;
            m_interface = &wlan;
        }
        if (!m_interface) m_error = ERROR_NOT_FOUND;
    }
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;

    DWORD Error() const { return m_error; }
    const winhost::PcDescription& Pc() const { return m_pc; }
    std::optional<WlanNetwork> Network() const { return winhost::ConnectedNetwork(m_pc, *m_interface); }

  private:
    DWORD m_error = ERROR_SUCCESS;
    const winhost::PcDescription m_pc = winhost::Pc::Instance().Description();
    const winhost::WlanInterface* m_interface = nullptr;
};

WLAN_CONNECTION_ATTRIBUTES AttributesOf(const WlanNetwork& network) {
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    attributes.isState = wlan_interface_state_connected;
    attributes.wlanConnectionMode = wlan_connection_mode_profile;
    winhost::PutWide(attributes.strProfileName, network.name);
    WLAN_ASSOCIATION_ATTRIBUTES& association = attributes.wlanAssociationAttributes;
    association.dot11Ssid = winhost::Dot11SsidOf(network);
    association.dot11BssType = dot11_BSS_type_infrastructure;
    association.dot11PhyType = dot11_phy_type_vht;
    association.wlanSignalQuality = kSignalQuality;
    association.ulRxRate = association.ulTxRate = kRate;
    WLAN_SECURITY_ATTRIBUTES& security = attributes.wlanSecurityAttributes;
    security.bSecurityEnabled = winhost::IsSecured(network);
    security.bOneXEnabled = network.oneX;
    security.dot11AuthAlgorithm = winhost::AuthAlgorithmOf(network);
    security.dot11CipherAlgorithm = winhost::CipherAlgorithmOf(network);
    return attributes;
}

template <class Type>
DWORD Return(const Type& value, PDWORD size, PVOID* data) {
    *data = AllocateWlanMemory(sizeof(Type));
    if (!*data) return ERROR_NOT_ENOUGH_MEMORY;
    std::memcpy(*data, &value, sizeof(Type));
    *size = sizeof(Type);
    return ERROR_SUCCESS;
}

WLAN_BSS_ENTRY EntryOf(const WlanNetwork& network) {
    WLAN_BSS_ENTRY entry{};
    entry.dot11Ssid = winhost::Dot11SsidOf(network);
    entry.dot11BssType = dot11_BSS_type_infrastructure;
    entry.dot11BssPhyType = dot11_phy_type_vht;
    entry.uLinkQuality = kSignalQuality;
    entry.lRssi = static_cast<LONG>(kSignalQuality / 2) - 100;
    entry.bInRegDomain = TRUE;
    entry.usBeaconPeriod = 100;
    entry.usCapabilityInformation = winhost::IsSecured(network) ? kPrivacyCapability : 0;
    entry.ulChCenterFrequency = winhost::FrequencyOf(network);
    return entry;
}

bool SameSsid(const DOT11_SSID& a, const DOT11_SSID& b) {
    return a.uSSIDLength == b.uSSIDLength && std::memcmp(a.ucSSID, b.ucSSID, a.uSSIDLength) == 0;
}

}  // namespace

DWORD WlanQueryInterface(HANDLE hClientHandle, const GUID* pInterfaceGuid, WLAN_INTF_OPCODE OpCode,
                         PVOID pReserved, PDWORD pdwDataSize, PVOID* ppData,
                         PWLAN_OPCODE_VALUE_TYPE pWlanOpcodeValueType) {
    WINHOST_GATE_CODE("WlanQueryInterface");
    if (pReserved || !pdwDataSize || !ppData) return ERROR_INVALID_PARAMETER;
    const Query query(hClientHandle, pInterfaceGuid);
    if (query.Error()) return query.Error();
    if (OpCode != wlan_intf_opcode_current_connection && OpCode != wlan_intf_opcode_channel_number)
        return ERROR_NOT_SUPPORTED;
    const auto network = query.Network();
    if (!network) return kInvalidState;
    if (pWlanOpcodeValueType) *pWlanOpcodeValueType = wlan_opcode_value_type_query_only;
    return OpCode == wlan_intf_opcode_channel_number ? Return(ULONG{network->channel}, pdwDataSize, ppData)
                                                     : Return(AttributesOf(*network), pdwDataSize, ppData);
}

DWORD WlanGetProfile(HANDLE hClientHandle, const GUID* pInterfaceGuid, LPCWSTR strProfileName,
                     PVOID pReserved, LPWSTR* pstrProfileXml, DWORD* pdwFlags, PDWORD pdwGrantedAccess) {
    WINHOST_GATE_CODE("WlanGetProfile");
    if (pReserved || !strProfileName || !pstrProfileXml) return ERROR_INVALID_PARAMETER;
    const Query query(hClientHandle, pInterfaceGuid);
    if (query.Error()) return query.Error();
    const std::string name = testbed::ToUtf8(std::wstring_view(strProfileName));
    for (const WlanNetwork& network : query.Pc().wlanNetworks) {
        if (network.name != name) continue;
        const std::wstring text =
            testbed::FromUtf8(winhost::ProfileOf(network, pdwFlags && (*pdwFlags & kPlainKey)));
        auto* const copy = static_cast<WCHAR*>(AllocateWlanMemory((text.size() + 1) * sizeof(WCHAR)));
        if (!copy) return ERROR_NOT_ENOUGH_MEMORY;
        std::copy(text.begin(), text.end(), copy);
        *pstrProfileXml = copy;
        if (pdwFlags) *pdwFlags = 0;  // a profile of all users
        if (pdwGrantedAccess) *pdwGrantedAccess = kWriteAccess;
        return ERROR_SUCCESS;
    }
    return ERROR_NOT_FOUND;
}

DWORD WlanGetNetworkBssList(HANDLE hClientHandle, const GUID* pInterfaceGuid, const PDOT11_SSID pDot11Ssid,
                            DOT11_BSS_TYPE dot11BssType, BOOL bSecurityEnabled, PVOID pReserved,
                            PWLAN_BSS_LIST* ppWlanBssList) {
    WINHOST_GATE_CODE("WlanGetNetworkBssList");
    if (pReserved || !ppWlanBssList) return ERROR_INVALID_PARAMETER;
    if (pDot11Ssid && pDot11Ssid->uSSIDLength > DOT11_SSID_MAX_LENGTH) return ERROR_INVALID_PARAMETER;
    // With an SSID the type of the network has to be named too.
    if (pDot11Ssid && dot11BssType == dot11_BSS_type_any) return ERROR_INVALID_PARAMETER;
    const Query query(hClientHandle, pInterfaceGuid);
    if (query.Error()) return query.Error();
    std::vector<WLAN_BSS_ENTRY> entries;
    for (const WlanNetwork& network : query.Pc().wlanNetworks) {
        if (!network.listed || dot11BssType == dot11_BSS_type_independent) continue;
        const bool asked = !pDot11Ssid || (SameSsid(winhost::Dot11SsidOf(network), *pDot11Ssid) &&
                                           winhost::IsSecured(network) == (bSecurityEnabled != FALSE));
        if (asked) entries.push_back(EntryOf(network));
    }
    const size_t size = std::max(sizeof(WLAN_BSS_LIST), offsetof(WLAN_BSS_LIST, wlanBssEntries) +
                                                            entries.size() * sizeof(WLAN_BSS_ENTRY));
    auto* const list = static_cast<WLAN_BSS_LIST*>(AllocateWlanMemory(size));
    if (!list) return ERROR_NOT_ENOUGH_MEMORY;
    list->dwTotalSize = static_cast<DWORD>(size);
    list->dwNumberOfItems = static_cast<DWORD>(entries.size());
    WLAN_BSS_ENTRY* entry = list->wlanBssEntries;
    for (const WLAN_BSS_ENTRY& each : entries)
        *entry++ = each;
    *ppWlanBssList = list;
    return ERROR_SUCCESS;
}
