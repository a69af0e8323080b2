// The PC's WLAN interfaces and the networks around it, as its description has them.
#pragma once

#include <cstdint>
#include <string>

#include "winhost/pc/Fields.h"

namespace winhost {

// An interface of the WLAN service.
struct WlanInterface {
    std::string guid;  // "{70A9067B-708F-443C-84BA-BC391FDBF72B}"
    std::string description = "Wi-Fi";
    uint32_t state = 4;  // WLAN_INTERFACE_STATE: 1 is connected, 4 disconnected
    // The profile of the network that it is connected to. Empty: the first network of the PC.
    std::string network = "";
};
WINHOST_FIELDS(WlanInterface, guid, description, state, network)

// A network that is in range and has a profile.
struct WlanNetwork {
    std::string name = "Home";               // of the profile
    std::string ssid = "Home";               // up to 32 bytes
    std::string ssidBytes;                   // in hexadecimal, for an SSID that is no UTF-8; replaces `ssid`
    std::string authentication = "WPA2PSK";  // in the profile: open, WPA2PSK, WPA3SAE, WPA2, WPA3, ...
    std::string encryption = "AES";          // in the profile: none, WEP, TKIP, AES, GCMP256
    std::string key = "correct horse";       // without one the profile has no shared key
    std::string keyType = "passPhrase";
    uint32_t authAlgorithm = 0;    // of the connection, DOT11_AUTH_ALGORITHM; 0: follows from the profile
    uint32_t cipherAlgorithm = 0;  // of the connection, DOT11_CIPHER_ALGORITHM; 0: follows from the profile
    uint32_t channel = 36;
    uint32_t frequency = 0;  // in kHz; 0: follows from the channel, of 2.4 or 5 GHz
    bool oneX = false;
    bool listed = true;   // among the BSSs in range
    std::string profile;  // the whole profile; empty: made of the above
};
WINHOST_FIELDS(WlanNetwork, name, ssid, ssidBytes, authentication, encryption, key, keyType, authAlgorithm,
               cipherAlgorithm, channel, frequency, oneX, listed, profile)

}  // namespace winhost
