// The profile of a network as XML.
#include <openssl/evp.h>

#include <array>
#include <map>

#include "testbed/Utf8.h"
#include "winhost/wlan/WlanNetworks.h"

namespace winhost {
namespace {

std::string Hex(const unsigned char* bytes, size_t size) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (size_t i = 0; i < size; ++i)
        (text += kDigits[bytes[i] >> 4]) += kDigits[bytes[i] & 0xF];
    return text;
}

std::string Escaped(const std::string& text) {
    static const std::map<char, std::string> kEntities = {
        {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}};
    std::string escaped;
    for (const char c : text) {
        const auto entity = kEntities.find(c);
        escaped += entity == kEntities.end() ? std::string(1, c) : entity->second;
    }
    return escaped;
}

// What stands in place of a key for those who may not read it: of the form that Windows gives it, and of no
// use.
std::string Protected(const std::string& profile) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    EVP_Digest(profile.data(), profile.size(), digest.data(), &size, EVP_sha256(), nullptr);
    return "01000000D08C9DDF0115D1118C7A00C04FC297EB" + Hex(digest.data(), size);
}

std::string SharedKey(const WlanNetwork& network) {
    if (network.key.empty()) return {};
    return "<sharedKey><keyType>" + Escaped(network.keyType) +
           "</keyType><protected>false</protected><keyMaterial>" + Escaped(network.key) +
           "</keyMaterial></sharedKey>";
}

std::string MadeProfile(const WlanNetwork& network) {
    const std::string ssid = SsidOf(network);
    const std::string name = Escaped(testbed::ToUtf8(testbed::FromUtf8(ssid)));
    return "<?xml version=\"1.0\"?>\n"
           "<WLANProfile xmlns=\"http://www.microsoft.com/networking/WLAN/profile/v1\">"
           "<name>" +
           Escaped(network.name) + "</name><SSIDConfig><SSID><hex>" +
           Hex(reinterpret_cast<const unsigned char*>(ssid.data()), ssid.size()) + "</hex><name>" + name +
           "</name></SSID></SSIDConfig>"
           "<connectionType>ESS</connectionType><connectionMode>auto</connectionMode>"
           "<MSM><security><authEncryption><authentication>" +
           Escaped(network.authentication) + "</authentication><encryption>" + Escaped(network.encryption) +
           "</encryption><useOneX>" + (network.oneX ? "true" : "false") + "</useOneX></authEncryption>" +
           SharedKey(network) + "</security></MSM></WLANProfile>\n";
}

// The first element of that name gets another text.
std::string WithText(std::string xml, const std::string& element, const std::string& text) {
    const std::string open = "<" + element + ">";
    const size_t begin = xml.find(open);
    if (begin == std::string::npos) return xml;
    const size_t from = begin + open.size();
    return xml.replace(from, xml.find('<', from) - from, text);
}

}  // namespace

std::string ProfileOf(const WlanNetwork& network, bool withPlainKey) {
    const std::string xml = network.profile.empty() ? MadeProfile(network) : network.profile;
    return withPlainKey ? xml : WithText(WithText(xml, "protected", "true"), "keyMaterial", Protected(xml));
}

}  // namespace winhost
