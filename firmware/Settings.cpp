#include "firmware/Settings.h"

#include <json/json.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "mailbox/FirmwareLevels.h"
#include "mailbox/MailboxRecords.h"

namespace mpm {

namespace {

[[noreturn]] void Refuse(const std::string& key, const std::string& wanted) {
    throw std::invalid_argument("setting " + key + " needs " + wanted);
}

std::string TextOf(const std::string& key, const Json::Value& value) {
    if (value.isString()) return value.asString();
    if (value.isBool()) return value.asBool() ? "true" : "false";
    if (value.isIntegral())
        return value.isInt64() ? std::to_string(value.asInt64()) : std::to_string(value.asUInt64());
    Refuse(key, "a text, a number or true/false");
}

template <class Number>
Number ParseNumber(const std::string& key, const std::string& text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const char* begin = text.data() + (hex ? 2 : 0);
    Number number{};
    const auto [stop, error] = std::from_chars(begin, text.data() + text.size(), number, hex ? 16 : 10);
    if (begin == text.data() + text.size() || error != std::errc() || stop != text.data() + text.size())
        Refuse(key, "a number from 0 to " + std::to_string(std::numeric_limits<Number>::max()) + ", not \"" +
                        text + "\"");
    return number;
}

bool ParseBool(const std::string& key, const std::string& text) {
    for (const char* yes : {"true", "1", "yes", "on"})
        if (strcasecmp(text.c_str(), yes) == 0) return true;
    for (const char* no : {"false", "0", "no", "off"})
        if (strcasecmp(text.c_str(), no) == 0) return false;
    Refuse(key, "true or false, not \"" + text + "\"");
}

constexpr const char* kPeerNames[] = {"none", "echo", "identify", "bridge", "screen"};

std::string PeerText(Peer peer, const std::string& server) {
    const std::string name = kPeerNames[size_t(peer)];
    return peer == Peer::Bridge ? name + ":" + server : name;
}

// `own` is what only this stream can have.
void ParsePeer(const std::string& key, const std::string& text, Peer own, Peer& peer, std::string& server) {
    for (const Peer each : {Peer::None, Peer::Echo, own})
        if (text == kPeerNames[size_t(each)]) return void(peer = each);
    const std::string address = text.starts_with("bridge:") ? text.substr(7) : "";
    const size_t colon = address.rfind(':');
    if (colon == std::string::npos || colon == 0)
        Refuse(key, std::string("none, echo, ") + kPeerNames[size_t(own)] + " or bridge:host:port, not \"" +
                        text + "\"");
    ParseNumber<uint16_t>(key, address.substr(colon + 1));
    peer = Peer::Bridge;
    server = address;
}

// One setting: how its text is taken, and how it is shown.
struct Entry {
    std::function<void(const std::string& key, const std::string& text)> set;
    std::function<Json::Value()> get;
};

Entry For(std::string& member, size_t limit) {
    return {[&member, limit](const std::string& key, const std::string& text) {
                if (text.size() > limit) Refuse(key, "at most " + std::to_string(limit) + " bytes");
                member = text;
            },
            [&member] { return Json::Value(member); }};
}

Entry For(bool& member) {
    return {[&member](const std::string& key, const std::string& text) { member = ParseBool(key, text); },
            [&member] { return Json::Value(member); }};
}

template <class Number>
Entry For(Number& member) {
    return {[&member](const std::string& key, const std::string& text) {
                member = ParseNumber<Number>(key, text);
            },
            [&member] { return Json::Value(Json::UInt(member)); }};
}

Entry Between(uint32_t& member, uint32_t least, uint32_t most) {
    return {[&member, least, most](const std::string& key, const std::string& text) {
                const auto number = ParseNumber<uint32_t>(key, text);
                if (number < least || number > most)
                    Refuse(key, "a number from " + std::to_string(least) + " to " + std::to_string(most) +
                                    ", not \"" + text + "\"");
                member = number;
            },
            [&member] { return Json::Value(Json::UInt(member)); }};
}

// Empty or "auto": follows the text that it is the length of.
Entry For(std::optional<uint32_t>& member) {
    return {[&member](const std::string& key, const std::string& text) {
                member = text.empty() || text == "auto" ? std::nullopt
                                                        : std::optional(ParseNumber<uint32_t>(key, text));
            },
            [&member] { return member ? Json::Value(*member) : Json::Value("auto"); }};
}

Entry For(Peer& peer, std::string& server, Peer own) {
    return {[&peer, &server, own](const std::string& key, const std::string& text) {
                ParsePeer(key, text, own, peer, server);
            },
            [&peer, &server] { return Json::Value(PeerText(peer, server)); }};
}

constexpr std::pair<const char*, Challenge> kChallengeNames[] = {
    {"MD5", Challenge::Md5}, {"SHA-256", Challenge::Sha256}, {"Basic", Challenge::Basic}};

Entry For(std::vector<Challenge>& member) {
    return {[&member](const std::string& key, const std::string& text) {
                std::vector<Challenge> parsed;
                std::istringstream words(text);
                for (std::string word; std::getline(words, word, ',');) {
                    const auto known = std::find_if(
                        std::begin(kChallengeNames), std::end(kChallengeNames),
                        [&](const auto& each) { return strcasecmp(each.first, word.c_str()) == 0; });
                    if (known == std::end(kChallengeNames) ||
                        std::count(parsed.begin(), parsed.end(), known->second))
                        Refuse(key, "a list of MD5, SHA-256 and Basic, not \"" + text + "\"");
                    parsed.push_back(known->second);
                }
                if (parsed.empty()) Refuse(key, "at least one of MD5, SHA-256 and Basic");
                member = parsed;
            },
            [&member] {
                std::string text;
                for (const Challenge each : member)
                    text += (text.empty() ? "" : ",") + std::string(kChallengeNames[size_t(each)].first);
                return Json::Value(text);
            }};
}

constexpr char kUserPrefix[] = "Users.";

bool IsUserKey(const std::string& key) {
    return strncasecmp(key.c_str(), kUserPrefix, sizeof kUserPrefix - 1) == 0;
}

bool IsCredential(const std::string& text) {
    constexpr size_t kLongest = 128;
    return text.size() <= kLongest &&
           std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; });
}

// Messages show no password.
void SetUser(std::map<std::string, std::string>& users, const std::string& key, const std::string& password) {
    const std::string name = key.substr(sizeof kUserPrefix - 1);
    if (name.empty() || name.find(':') != std::string::npos || !IsCredential(name))
        Refuse(key, "a name without a colon and control characters, of at most 128 bytes");
    if (!IsCredential(password)) Refuse(key, "a password without control characters, of at most 128 bytes");
    if (password.empty())
        users.erase(name);
    else
        users[name] = password;
}

Entry Secret(Entry entry, const std::string& member) {
    entry.get = [&member] { return Json::Value("(" + std::to_string(member.size()) + " bytes, not shown)"); };
    return entry;
}

// Calls visit(key, entry) for every setting.
template <class Visit>
void ForEach(Settings& s, const Visit& visit) {
    visit("MPMVersion", For(s.MPMVersion, sizeof(ManageabilityStatus::MPMVersion) - 1));
    visit("ProvisionStatus", For(s.ProvisionStatus));
    visit("uECAbsent", For(s.uECAbsent));
    visit("uVORKVersion", For(s.uVORKVersion));
    visit("KVMStatus", For(s.KVMStatus));
    visit("MPMStatus", For(s.MPMStatus));
    visit("StatusFollowsHost", For(s.StatusFollowsHost));
    visit("Domains", For(s.Domains, DomainInfo::kMaxDomains));
    visit("DomainSize", For(s.DomainSize));
    visit("Cloud.Hostname", For(s.Cloud.Hostname, sizeof(CloudCertInfo::Hostname) - 1));
    visit("Cloud.Port", For(s.Cloud.Port));
    visit("Cloud.BypassCloud", For(s.Cloud.BypassCloud));
    visit("Cloud.vCloudCert", For(s.Cloud.vCloudCert, sizeof(CloudCertInfo::vCloudCert)));
    visit("Cloud.vCloudCertSize", For(s.Cloud.vCloudCertSize));
    visit("Cloud.vCloudKey",
          Secret(For(s.Cloud.vCloudKey, sizeof(CloudCertInfo::vCloudKey)), s.Cloud.vCloudKey));
    visit("Cloud.vCloudKeySize", For(s.Cloud.vCloudKeySize));
    visit("Cloud.vCloudCACert", For(s.Cloud.vCloudCACert, sizeof(CloudCertInfo::vCloudCACert)));
    visit("Cloud.vCloudCACertSize", For(s.Cloud.vCloudCACertSize));
    visit("EndsClosedSessions", For(s.EndsClosedSessions));
    visit("Dash", For(s.Dash, s.DashServer, Peer::Identify));
    visit("Kvm", For(s.Kvm, s.KvmServer, Peer::Screen));
    visit("Screen.FrameRate", Between(s.Screen.FrameRate, 1, 240));
    visit("Screen.MaxFrame", Between(s.Screen.MaxFrame, 1, 1u << 30));
    visit("Screen.Display", For(s.Screen.Display, 256));
    visit("Screen.Ivf", For(s.Screen.Ivf, 4096));
    visit("Screen.Settle", Between(s.Screen.Settle, 0, 60000));
    visit("Screen.Patience", Between(s.Screen.Patience, 0, 600000));
    visit("Screen.Trace", For(s.Screen.Trace));
    visit("DashPause", For(s.DashPause));
    visit("Challenges", For(s.Challenges));
    visit("ProductVendor", For(s.ProductVendor, 256));
    visit("DASHVersion", For(s.DASHVersion, 256));
    visit("ShowWiFiKey", For(s.ShowWiFiKey));
    visit("KeepRequests", For(s.KeepRequests));
}

void SetAll(Settings& settings, const std::string& prefix, const Json::Value& object) {
    for (const std::string& name : object.getMemberNames()) {
        const Json::Value& value = object[name];
        if (value.isObject())
            SetAll(settings, prefix + name + ".", value);
        else
            settings.Set(prefix + name, TextOf(prefix + name, value));
    }
}

}  // namespace

void Settings::Set(const std::string& key, const std::string& value) {
    if (IsUserKey(key)) return SetUser(Users, key, value);
    bool found = false;
    ForEach(*this, [&](const char* name, const Entry& entry) {
        if (strcasecmp(name, key.c_str()) != 0) return;
        entry.set(name, value);
        found = true;
    });
    if (!found) throw std::invalid_argument("there is no setting \"" + key + "\"");
}

void Settings::Merge(const Json::Value& object) {
    if (!object.isObject()) throw std::invalid_argument("the settings are no JSON object");
    SetAll(*this, "", object);
}

void Settings::MergeFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::invalid_argument("cannot read settings file " + path);
    Json::Value object;
    std::string errors;
    Json::CharReaderBuilder builder;
    builder["failIfExtra"] = true;
    if (!Json::parseFromStream(builder, file, &object, &errors))
        throw std::invalid_argument("settings file " + path +
                                    " is no JSON: " + errors.substr(0, errors.find_last_not_of('\n') + 1));
    Merge(object);
}

Settings Settings::FromJson(const Json::Value& object) {
    Settings settings;
    settings.Merge(object);
    return settings;
}

Settings Settings::FromFile(const std::string& path) {
    Settings settings;
    settings.MergeFile(path);
    return settings;
}

void Settings::Check() const {
    if (Kvm == Peer::Screen && uVORKVersion < FirmwareLevel::DisplayKvm)
        throw std::invalid_argument("Kvm=screen needs a uVORKVersion of at least " +
                                    std::to_string(FirmwareLevel::DisplayKvm) + ", not " +
                                    std::to_string(uVORKVersion));
}

Json::Value Settings::ToJson() const {
    Settings copy = *this;
    Json::Value object(Json::objectValue);
    ForEach(copy, [&object](const std::string& name, const Entry& entry) {
        const size_t dot = name.find('.');
        (dot == std::string::npos ? object[name] : object[name.substr(0, dot)][name.substr(dot + 1)]) =
            entry.get();
    });
    object["Users"] = Json::Value(Json::objectValue);
    for (const auto& [name, password] : Users)
        object["Users"][name] = "(not shown)";
    return object;
}

}  // namespace mpm
