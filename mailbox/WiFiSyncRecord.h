// The settings of the host's Wi-Fi network, in WriteWiFiSyncInfo and on the Wi-Fi pipe. Packed,
// little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

// The values of wpaauth.
namespace WpaAuth {
inline constexpr uint32_t Open = 0, Wpa2Personal = 2, Wpa2Enterprise = 3, Wpa3Personal = 4,
                          Wpa3Enterprise = 5, OtherEnterprise = 6;
}
// The values of pairwise and groupwise.
namespace WiFiCipher {
inline constexpr uint32_t None = 0, Ccmp = 1, Tkip = 2, CcmpAndTkip = 3, Gcmp256 = 5;
}

#pragma pack(push, 1)

struct WiFiSyncInfo {
    uint32_t size_of_this_structure;
    uint8_t is_valid;
    char ssid[33];  // NUL-terminated
    uint16_t channel;
    uint32_t wpaauth;       // of WpaAuth
    char key_material[64];  // the passphrase in plain text
    uint32_t pairwise;      // of WiFiCipher
    uint32_t groupwise;     // the same
    uint32_t group_mgmt;
    uint32_t band;  // 0 none, 1 2.4 GHz, 2 5 GHz, 3 6 GHz, 4 all
    uint32_t pmf;   // 1 required
    uint32_t wpa_ptk_rekey;
};
static_assert(sizeof(WiFiSyncInfo) == 132 && offsetof(WiFiSyncInfo, channel) == 38 &&
              offsetof(WiFiSyncInfo, key_material) == 44 && offsetof(WiFiSyncInfo, pairwise) == 108 &&
              offsetof(WiFiSyncInfo, wpa_ptk_rekey) == 128);
RECORD_FIELDS(WiFiSyncInfo, FIELD(size_of_this_structure), FIELD(is_valid), FIELD_AS(ssid, Text),
              FIELD(channel), FIELD(wpaauth), FIELD_AS(key_material, Secret), FIELD(pairwise),
              FIELD(groupwise), FIELD(group_mgmt), FIELD(band), FIELD(pmf), FIELD(wpa_ptk_rekey));

#pragma pack(pop)
