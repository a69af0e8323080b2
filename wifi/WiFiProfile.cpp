#include "wifi/WiFiProfile.h"

#include <algorithm>
#include <cstring>

#include "base/FieldText.h"
#include "base/Log.h"
#include "wifi/WLANProfileReader.h"
#include "wifi/WlanConnection.h"

namespace {

bool IsPersonal(const WiFiSyncInfo& record) {
    return record.wpaauth == WpaAuth::Wpa2Personal || record.wpaauth == WpaAuth::Wpa3Personal;
}

bool IsEnterprise(const WiFiSyncInfo& record) {
    return record.wpaauth == WpaAuth::Wpa2Enterprise || record.wpaauth == WpaAuth::Wpa3Enterprise ||
           record.wpaauth == WpaAuth::OtherEnterprise;
}

// Channel, band and pmf do not count: a host that roams stays in its network.
bool IsSame(const WiFiSyncInfo* last, const WiFiSyncInfo& record) {
    return last && std::memcmp(last->ssid, record.ssid, sizeof record.ssid) == 0 &&
           last->wpaauth == record.wpaauth && last->pairwise == record.pairwise &&
           last->groupwise == record.groupwise &&
           (!IsPersonal(record) ||
            std::memcmp(last->key_material, record.key_material, sizeof record.key_material) == 0);
}

void ApplyConnection(const WLAN_SECURITY_ATTRIBUTES& security, WiFiSyncInfo& record) {
    const auto authentication = static_cast<uint32_t>(security.dot11AuthAlgorithm);
    if (authentication == kAuthWpa2Psk) {
        record.wpaauth = WpaAuth::Wpa2Personal;
        record.pmf = 0;
    } else if (authentication == kAuthWpa3Sae) {
        record.wpaauth = WpaAuth::Wpa3Personal;
        record.pmf = 1;
    }
    if (record.wpaauth == WpaAuth::Wpa2Personal) {
        record.pairwise = record.groupwise = WiFiCipher::CcmpAndTkip;
        return;
    }
    if (record.wpaauth == WpaAuth::Wpa3Personal) {
        record.pairwise = record.groupwise = WiFiCipher::Ccmp;
        return;
    }
    switch (static_cast<uint32_t>(security.dot11CipherAlgorithm)) {
        case 0:
            record.pairwise = record.groupwise = WiFiCipher::None;
            break;
        case 2:
            record.pairwise = record.groupwise = WiFiCipher::Tkip;
            break;
        case 4:
            record.pairwise = record.groupwise = WiFiCipher::Ccmp;
            break;
        case 9:
            record.pairwise = WiFiCipher::Gcmp256;
            break;
        default:
            break;
    }
}

void FillFromProfile(const std::string& xml, WiFiSyncInfo& record) {
    const WLANProfileReader reader(xml);
    record.group_mgmt = record.pmf = record.wpa_ptk_rekey = 0;
    reader.ReadProfile(record);
}

// Returns false when nothing of it can be used. Throws for a profile that is no XML.
bool FillFromWlan(const WlanContext& context, const WiFiSyncInfo* last, WiFiSyncInfo& record) {
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    if (const DWORD error = QueryConnection(context, attributes)) {
        LogError("WlanQueryInterface API to get Connection Info failed with error: %u", error);
        return false;
    }
    SsidOf(attributes).copy(record.ssid, sizeof record.ssid - 1);
    // The name comes from a field and may lack its NUL.
    const std::wstring name(TextInField(attributes.strProfileName));
    const auto xml = QueryProfile(context, name.c_str());
    if (!xml) return false;
    FillFromProfile(*xml, record);
    if (record.wpaauth == WpaAuth::Open) {
        LogInfo("Detected an unsecured Wi-Fi network.It is not supported.");
        return false;
    }
    const uint32_t frequency = QueryFrequency(context, attributes);
    const uint32_t channel = QueryChannel(context);
    record.channel = static_cast<uint16_t>(channel);
    record.band = BandOf(record.channel, frequency);
    ApplyConnection(attributes.wlanSecurityAttributes, record);
    if (!IsSame(last, record) || !IsPersonal(record)) {
        LogInfo("CenterFrequency: %u, channel: %lu", frequency, channel);
        LogInfo("Profile Name: %ls", attributes.strProfileName);
        LogConnection(attributes, record);
    }
    return true;
}

void Store(const WiFiSyncInfo& record, WiFiSyncInfo& last) {
    last = record;
    if (!IsPersonal(record)) std::memset(last.key_material, 0, sizeof last.key_material);
    LogInfo("Updated last connected Wi-Fi profile.");
}

// Everything but the key.
void LogRecord(const WiFiSyncInfo& record) {
    LogInfo("size_of_this_structure: %d", record.size_of_this_structure);
    LogInfo("is_valid: %d", record.is_valid);
    LogInfo("ssid: %s", std::string(TextInField(record.ssid)));
    LogInfo("wpaauth: %d", record.wpaauth);
    LogInfo("pairwise: %d", record.pairwise);
    LogInfo("groupwise: %d", record.groupwise);
    LogInfo("group_mgmt: %d", record.group_mgmt);
    LogInfo("band: %d", record.band);
    LogInfo("channel: %d", record.channel);
    LogInfo("pmf: %d", record.pmf);
    LogInfo("wpa_ptk_rekey: %d", record.wpa_ptk_rekey);
}

WiFiProfileCode AlreadyKnown() {
    LogDebug("Wi-Fi profile already exists");
    return WiFiProfileCode::AlreadyKnown;
}

WiFiProfileCode Conclude(bool filled, bool same, WiFiSyncInfo* last, WiFiSyncInfo& record) {
    WiFiProfileCode code = filled ? WiFiProfileCode::New : WiFiProfileCode::Error;
    if (IsEnterprise(record)) {
        LogInfo(
            "Enterprise Wi-Fi Profile found.The synching of the enterprise profile is currently not "
            "implemented.");
        code = same ? WiFiProfileCode::AlreadyKnown : WiFiProfileCode::Enterprise;
    }
    if (code == WiFiProfileCode::Error) {
        LogError("Wi-Fi profile extraction error");
        return code;
    }
    if (code == WiFiProfileCode::AlreadyKnown) return AlreadyKnown();
    if (code == WiFiProfileCode::New)
        LogInfo("Successfully extracted Wi-Fi profile data");
    else
        LogInfo("Enterprise Wi-Fi profile found");
    record.is_valid = 1;
    if (last) Store(record, *last);
    LogRecord(record);
    return code;
}

}  // namespace

WiFiSyncInfo EmptyWiFiRecord() {
    WiFiSyncInfo record{};
    record.size_of_this_structure = sizeof record;
    return record;
}

WiFiProfileCode ExtractWiFiProfile(const WlanContext& context, WiFiSyncInfo* lastProfile,
                                   WiFiSyncInfo& record) {
    bool filled = true;
    if (context.reader) {
        // An empty record of a reader that failed goes on, and is stored and sent.
        context.reader(&record);
    } else {
        filled = FillFromWlan(context, lastProfile, record);
    }
    const bool same = filled && IsSame(lastProfile, record);
    if (same && IsPersonal(record)) return AlreadyKnown();
    return Conclude(filled, same, lastProfile, record);
}

std::string GetCurrentSSID(const WlanContext& context) {
    if (context.reader) {
        WiFiSyncInfo record = EmptyWiFiRecord();
        context.reader(&record);
        return std::string(TextInField(record.ssid));
    }
    WLAN_CONNECTION_ATTRIBUTES attributes{};
    if (const DWORD error = QueryConnection(context, attributes)) {
        LogError("%s: WlanQueryInterface API to get Connection Info failed with error: %u", "getCurrentSSID",
                 error);
        return {};
    }
    std::string ssid = SsidOf(attributes);
    if (!ssid.empty()) LogDebug("SSID from Connection Attribute: %s", ssid);
    return ssid;
}
