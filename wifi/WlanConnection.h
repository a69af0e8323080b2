// What the WLAN service reports about the connection of one interface.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/Handles.h"
#include "wifi/WiFiProfile.h"

// DOT11_AUTH_ALGORITHM, of which not every SDK has all values.
inline constexpr uint32_t kAuthWpa2Psk = 7, kAuthWpa3Sae = 9;

// Returns 0 and the attributes of the connection, or the error of the WLAN service.
DWORD QueryConnection(const WlanContext& context, WLAN_CONNECTION_ATTRIBUTES& attributes);
// Returns the SSID of the connection. It may have any bytes.
std::string SsidOf(const WLAN_CONNECTION_ATTRIBUTES& attributes);

// These log an error. Returns none, or the profile with its key in plain text.
std::optional<std::string> QueryProfile(const WlanContext& context, const WCHAR* name);
// Returns the centre frequency of the first BSS in kHz, 0 when it is not known.
uint32_t QueryFrequency(const WlanContext& context, const WLAN_CONNECTION_ATTRIBUTES& attributes);
// Returns 0 when the channel is not known.
uint32_t QueryChannel(const WlanContext& context);

// Returns the record's band.
uint32_t BandOf(uint16_t channel, uint32_t frequency);

void LogConnection(const WLAN_CONNECTION_ATTRIBUTES& attributes, const WiFiSyncInfo& record);
