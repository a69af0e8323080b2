// Profiles of networks as XML.
#pragma once

#include <string>

// What stands below "security" is given.
inline std::string ProfileWith(const std::string& security, const std::string& ssid = "office") {
    return "<?xml version=\"1.0\"?><WLANProfile "
           "xmlns=\"http://www.microsoft.com/networking/WLAN/profile/v1\">"
           "<name>of the profile</name><SSIDConfig><SSID><hex>00</hex><name>" +
           ssid + "</name></SSID></SSIDConfig><MSM><security>" + security + "</security></MSM></WLANProfile>";
}

inline std::string Authentication(const std::string& kind) {
    return "<authEncryption><authentication>" + kind +
           "</authentication><encryption>AES</encryption></authEncryption>";
}

inline std::string SharedKey(const std::string& key, const std::string& type = "passPhrase") {
    return "<sharedKey><keyType>" + type + "</keyType><protected>false</protected><keyMaterial>" + key +
           "</keyMaterial></sharedKey>";
}

inline std::string Wpa2Profile(const std::string& key = "correct horse") {
    return ProfileWith(Authentication("WPA2PSK") + SharedKey(key));
}
