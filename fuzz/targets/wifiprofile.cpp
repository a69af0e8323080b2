// The profile of a Wi-Fi network, which anyone may write who may add a network to the PC. The first byte
// chooses how often the rest is repeated, so that a short input reaches the limits.
#include <algorithm>
#include <exception>
#include <string>

#include "fuzz/Input.h"
#include "wifi/WLANProfileReader.h"

namespace {

constexpr uint32_t kHighestAuthentication = 5;

template <size_t N>
void RequireText(const char (&field)[N]) {
    const char* const end = std::find(field, field + N, '\0');
    fuzz::Require(end != field + N, "a text ends in its field");
    fuzz::Require(std::all_of(end, field + N, [](char c) { return c == '\0'; }), "only zeros follow a text");
}

}  // namespace

FUZZ_TARGET(wifiprofile) {
    fuzz::Input bytes(input);
    const size_t times = bytes.Byte() % 16 == 15 ? 200 : 1;
    const std::string part = fuzz::TextOf(bytes.Rest());
    std::string xml;
    for (size_t i = 0; i < times; ++i)
        xml += part;
    WiFiSyncInfo record{};
    try {
        const WLANProfileReader reader(xml);
        fuzz::Require(xml.size() <= WLANProfileReader::kMaxProfileSize, "a profile is bounded");
        reader.ReadProfile(record);
        EnterpriseProfileData data;
        reader.ReadEnterpriseProfile(data);
        fuzz::Require(data.eap_type <= 3, "the kind of EAP is known");
    } catch (const std::exception& refusal) {
        fuzz::Require(std::string(refusal.what()).size() < 60, "a refusal is short");
        return;
    }
    RequireText(record.ssid);
    RequireText(record.key_material);
    const bool isPersonal = record.wpaauth == 2 || record.wpaauth == 4;
    fuzz::Require(record.wpaauth <= kHighestAuthentication && record.wpaauth != 1,
                  "the kind of authentication is known");
    fuzz::Require(isPersonal || record.key_material[0] == '\0', "only a personal network has a key");
    fuzz::Require(record.pairwise == record.groupwise && record.group_mgmt == 4 * record.pmf,
                  "the ciphers belong together");
    fuzz::Require(record.channel == 0 && record.band == 0 && record.is_valid == 0,
                  "what the profile does not have stays 0");
}
