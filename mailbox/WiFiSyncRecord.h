// The settings of the host's Wi-Fi network, in WriteWiFiSyncInfo and on the Wi-Fi pipe. Packed,
// little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mailbox/RecordFields.h"

#pragma pack(push, 1)

struct WiFiSyncInfo {
    uint32_t size_of_this_structure;
    uint8_t is_valid;
    char ssid[33];  // NUL-terminated
    uint16_t channel;
    uint32_t wpaauth;       // 0 open, 2 WPA2 personal, 3 WPA2 enterprise, 4 WPA3 personal, 5 WPA3 enterprise
    char key_material[64];  // the passphrase in plain text
    uint32_t pairwise;      // 0 none, 1 CCMP, 2 TKIP, 3 CCMP and TKIP, 5 GCMP-256
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
