#include "wifi/WlanConnection.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <string_view>

#include "base/FieldText.h"
#include "base/Log.h"
#include "base/WideText.h"
#include "wifi/WLANProfileReader.h"

namespace {

constexpr DWORD kPlainTextKey = 4;   // WLAN_PROFILE_GET_PLAINTEXT_KEY
constexpr size_t kMaxUtf8Bytes = 4;  // of one character

// Returns the error, or ERROR_INVALID_DATA for an answer that is too short.
DWORD Query(const WlanContext& context, WLAN_INTF_OPCODE opcode, void* answer, size_t size) {
    DWORD received = 0;
    PVOID data = nullptr;
    WLAN_OPCODE_VALUE_TYPE type{};
    const bool hasType = opcode == wlan_intf_opcode_current_connection;
    const DWORD error = WlanQueryInterface(context.client, &context.interfaceGuid, opcode, nullptr, &received,
                                           &data, hasType ? &type : nullptr);
    if (error) return error;
    const UniqueWlanMemory owner(data);
    if (!data || received < size) return ERROR_INVALID_DATA;
    std::memcpy(answer, data, size);
    return ERROR_SUCCESS;
}

const char* BandText(uint32_t band) {
    constexpr const char* kTexts[] = {"Band: None", "Band: 2.4GHz", "Band: 5GHz", "Band: 6GHz",
                                      "Band: All Bands"};
    return kTexts[std::min<size_t>(band, std::size(kTexts) - 1)];
}

void LogCipher(uint32_t wpaauth, uint32_t cipher) {
    if (wpaauth == WpaAuth::Wpa2Personal) return LogInfo("Cipher Algorithm: CCMP TKIP");
    if (wpaauth == WpaAuth::Wpa3Personal) return LogInfo("Cipher Algorithm: CCMP");
    switch (cipher) {
        case 0:
            return LogInfo("Cipher Algorithm: None");
        case 2:
            return LogInfo("Cipher Algorithm: TKIP");
        case 4:
            return LogInfo("Cipher Algorithm: CCMP");
        case 9:
            return LogInfo("Cipher Algorithm: GCMP_256");
        case 12:
            return LogInfo("Cipher Algorithm: BIP_GMAC_256");
        default:
            return LogInfo("Cipher Algorithm: Other (0x%x)", cipher);
    }
}

}  // namespace

DWORD QueryConnection(const WlanContext& context, WLAN_CONNECTION_ATTRIBUTES& attributes) {
    return Query(context, wlan_intf_opcode_current_connection, &attributes, sizeof attributes);
}

std::string SsidOf(const WLAN_CONNECTION_ATTRIBUTES& attributes) {
    const DOT11_SSID& ssid = attributes.wlanAssociationAttributes.dot11Ssid;
    const size_t length = std::min<size_t>(ssid.uSSIDLength, std::size(ssid.ucSSID));
    return {reinterpret_cast<const char*>(ssid.ucSSID), length};
}

std::optional<std::string> QueryProfile(const WlanContext& context, const WCHAR* name) {
    LPWSTR xml = nullptr;
    DWORD flags = kPlainTextKey, access = 0;
    const DWORD error =
        WlanGetProfile(context.client, &context.interfaceGuid, name, nullptr, &xml, &flags, &access);
    const UniqueWlanMemory owner(xml);
    if (error || !xml) {
        LogError("WlanGetProfile failed with error: %u", error);
        return std::nullopt;
    }
    // One character more than the reader accepts is enough for its refusal.
    const std::wstring_view text(xml, wcsnlen(xml, WLANProfileReader::kMaxProfileSize + 1));
    return ToUtf8(text, kMaxUtf8Bytes * text.size());
}

uint32_t QueryFrequency(const WlanContext& context, const WLAN_CONNECTION_ATTRIBUTES& attributes) {
    DOT11_SSID ssid = attributes.wlanAssociationAttributes.dot11Ssid;
    PWLAN_BSS_LIST list = nullptr;
    const DWORD error = WlanGetNetworkBssList(
        context.client, &context.interfaceGuid, &ssid, attributes.wlanAssociationAttributes.dot11BssType,
        attributes.wlanSecurityAttributes.bSecurityEnabled, nullptr, &list);
    const UniqueWlanMemory owner(list);
    if (error) {
        LogError("WlanGetNetworkBssList API failed with error: %u", error);
        return 0;
    }
    return list && list->dwNumberOfItems > 0 ? list->wlanBssEntries[0].ulChCenterFrequency : 0;
}

uint32_t QueryChannel(const WlanContext& context) {
    uint32_t channel = 0;
    if (const DWORD error = Query(context, wlan_intf_opcode_channel_number, &channel, sizeof channel)) {
        LogError("WlanQueryInterface to get channel info failed with error: %u", error);
        return 0;
    }
    return channel;
}

uint32_t BandOf(uint16_t channel, uint32_t frequency) {
    if (channel == 0) return 0;
    // The lower bound is in MHz and the upper one in kHz. The firmware expects the band by this rule.
    if (channel < 15 && frequency >= 2412 && frequency <= 2'484'000) return 1;
    if (channel >= 36 && channel <= 173 && frequency >= 5'160'000 && frequency <= 5'885'000) return 2;
    if (frequency >= 5'935'000 && frequency <= 7'115'000) return 3;
    return 4;
}

void LogConnection(const WLAN_CONNECTION_ATTRIBUTES& attributes, const WiFiSyncInfo& record) {
    const WLAN_ASSOCIATION_ATTRIBUTES& association = attributes.wlanAssociationAttributes;
    const WLAN_SECURITY_ATTRIBUTES& security = attributes.wlanSecurityAttributes;
    LogInfo("%s", BandText(record.band));
    LogInfo("Profile name used: %ls", attributes.strProfileName);
    LogInfo("Connection Attributes Signal Quality: %d", association.wlanSignalQuality);
    LogInfo("Connection Attributes Receiving Rate: %d", association.ulRxRate);
    LogInfo("Connection Attributes Transmission Rate: %ld", association.ulTxRate);
    LogInfo("SSID from Connection Attribute: %s", SsidOf(attributes));
    if (security.bSecurityEnabled) {
        LogInfo("SecurityEnabled: Yes");
    } else {
        LogInfo("SecurityEnabled: No");
    }
    if (security.bOneXEnabled) {
        LogInfo("802.1X enabled: Yes");
    } else {
        LogInfo("802.1X enabled: No");
    }
    LogInfo("dot11AuthAlgorithm (0x%x)", security.dot11AuthAlgorithm);
    const auto authentication = static_cast<uint32_t>(security.dot11AuthAlgorithm);
    if (authentication == kAuthWpa2Psk) LogInfo("Authtype from current connection: WPA2PSK");
    if (authentication == kAuthWpa3Sae) LogInfo("Authtype from current connection: WPA3SAE");
    LogCipher(record.wpaauth, static_cast<uint32_t>(security.dot11CipherAlgorithm));
}
