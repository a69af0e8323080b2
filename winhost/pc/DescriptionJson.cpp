#include "winhost/pc/DescriptionJson.h"

#include <json/reader.h>

#include <concepts>
#include <fstream>
#include <limits>
#include <set>

namespace winhost {
namespace {

constexpr const char* kReal = "real";

std::string OneLine(std::string text) {
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = '?';
    return text;
}

template <class T, class Plain>
concept Either = std::same_as<T, Plain> || std::same_as<T, const Plain>;

// The keys, once for reading and writing.
template <class Visitor, Either<AdapterAddress> A>
void VisitFields(Visitor& visit, A& address) {
    visit("address", address.address);
    visit("mask", address.mask);
    visit("dhcp", address.dhcp);
    visit("bits", address.bits);
}

template <class Visitor, Either<Adapter> A>
void VisitFields(Visitor& visit, A& adapter) {
    visit("name", adapter.name);
    visit("description", adapter.description);
    visit("index", adapter.index);
    visit("type", adapter.type);
    visit("mac", adapter.mac);
    visit("address", adapter.address);
    visit("mask", adapter.mask);
    visit("gateway", adapter.gateway);
    visit("dhcp", adapter.dhcp);
    visit("dhcpServer", adapter.dhcpServer);
    visit("speed", adapter.speed);
    visit("operStatus", adapter.operStatus);
    visit("mtu", adapter.mtu);
    visit("addressBits", adapter.addressBits);
    visit("moreAddresses", adapter.moreAddresses);
}

template <class Visitor, Either<ZoneTransition> Z>
void VisitFields(Visitor& visit, Z& transition) {
    visit("month", transition.month);
    visit("week", transition.week);
    visit("weekday", transition.weekday);
    visit("hour", transition.hour);
}

template <class Visitor, Either<WlanInterface> W>
void VisitFields(Visitor& visit, W& wlan) {
    visit("guid", wlan.guid);
    visit("description", wlan.description);
    visit("state", wlan.state);
    visit("network", wlan.network);
}

template <class Visitor, Either<WlanNetwork> W>
void VisitFields(Visitor& visit, W& network) {
    visit("name", network.name);
    visit("ssid", network.ssid);
    visit("ssidBytes", network.ssidBytes);
    visit("authentication", network.authentication);
    visit("encryption", network.encryption);
    visit("key", network.key);
    visit("keyType", network.keyType);
    visit("authAlgorithm", network.authAlgorithm);
    visit("cipherAlgorithm", network.cipherAlgorithm);
    visit("channel", network.channel);
    visit("frequency", network.frequency);
    visit("signalQuality", network.signalQuality);
    visit("receivingRate", network.receivingRate);
    visit("transmissionRate", network.transmissionRate);
    visit("oneX", network.oneX);
    visit("listed", network.listed);
    visit("profile", network.profile);
    visit("profileFile", network.profileFile);
}

template <class Visitor, Either<DescribedProcess> P>
void VisitFields(Visitor& visit, P& process) {
    visit("name", process.name);
    visit("pid", process.pid);
    visit("session", process.session);
}

template <class Visitor, Either<DescribedService> S>
void VisitFields(Visitor& visit, S& service) {
    visit("name", service.name);
    visit("type", service.type);
    visit("startType", service.startType);
    visit("state", service.state);
    visit("stopMs", service.stopMs);
    visit("openError", service.openError);
    visit("startError", service.startError);
    visit("stopError", service.stopError);
    visit("changeError", service.changeError);
}

template <class Visitor, Either<Package> P>
void VisitFields(Visitor& visit, P& package) {
    visit("fullName", package.fullName);
    visit("path", package.path);
    visit("familyName", package.familyName);
}

template <class Visitor, Either<Screen> S>
void VisitFields(Visitor& visit, S& screen) {
    visit("width", screen.width);
    visit("height", screen.height);
}

template <class Visitor, Either<EscapeAnswer> E>
void VisitFields(Visitor& visit, E& answer) {
    visit("code", answer.code);
    visit("query", answer.query);
    visit("status", answer.status);
    visit("numbers", answer.numbers);
}

template <class Visitor, Either<GraphicsAdapter> G>
void VisitFields(Visitor& visit, G& adapter) {
    visit("description", adapter.description);
    visit("vendor", adapter.vendor);
    visit("device", adapter.device);
    visit("outputs", adapter.outputs);
    visit("luid", adapter.luid);
    visit("pciBus", adapter.pciBus);
    visit("pciDevice", adapter.pciDevice);
    visit("pciFunction", adapter.pciFunction);
    visit("hasPciAddress", adapter.hasPciAddress);
    visit("driverPath", adapter.driverPath);
    visit("privateData", adapter.privateData);
    visit("engineCount", adapter.engineCount);
    visit("engines", adapter.engines);
    visit("encoderCores", adapter.encoderCores);
    visit("escapes", adapter.escapes);
    visit("featureLevel", adapter.featureLevel);
    visit("direct3dError", adapter.direct3dError);
}

template <class Visitor, Either<PcDescription> D>
void VisitFields(Visitor& visit, D& pc) {
    visit("root", pc.root);
    visit("environment", pc.environment);
    visit("modulePath", pc.modulePath);
    visit("libraryFolders", pc.libraryFolders);
    visit("package", pc.package);
    visit("userName", pc.userName);
    visit("computerName", pc.computerName);
    visit("osVersionLine", pc.osVersionLine);
    visit("osVersion", pc.osVersion);
    visit("osType", pc.osType);
    visit("processorArchitecture", pc.processorArchitecture);
    visit("wmiConnectError", pc.wmiConnectError);
    visit("wmiQueryError", pc.wmiQueryError);
    visit("dnsDomain", pc.dnsDomain);
    visit("directory", pc.directory);
    visit("timeZoneName", pc.timeZoneName);
    visit("timeZoneBiasMinutes", pc.timeZoneBiasMinutes);
    visit("timeZoneDaylightBiasMinutes", pc.timeZoneDaylightBiasMinutes);
    visit("timeZoneDaylightStart", pc.timeZoneDaylightStart);
    visit("timeZoneStandardStart", pc.timeZoneStandardStart);
    visit("registry", pc.registry);
    visit("registryExpandTexts", pc.registryExpandTexts);
    visit("registryNumbers", pc.registryNumbers);
    visit("adapters", pc.adapters);
    visit("dnsServers", pc.dnsServers);
    visit("connectedFlags", pc.connectedFlags);
    visit("wlanService", pc.wlanService);
    visit("wlanInterfaces", pc.wlanInterfaces);
    visit("wlanNetworks", pc.wlanNetworks);
    visit("rootCertificates", pc.rootCertificates);
    visit("modernStandby", pc.modernStandby);
    visit("sleepS3", pc.sleepS3);
    visit("hibernation", pc.hibernation);
    visit("shuttingDown", pc.shuttingDown);
    visit("privileges", pc.privileges);
    visit("consoleSession", pc.consoleSession);
    visit("desktopLocked", pc.desktopLocked);
    visit("sessionInfoLevel", pc.sessionInfoLevel);
    visit("sessionInfoBytes", pc.sessionInfoBytes);
    visit("screen", pc.screen);
    visit("graphicsAdapters", pc.graphicsAdapters);
    visit("softwareDirect3d", pc.softwareDirect3d);
    visit("timerPeriod", pc.timerPeriod);
    visit("processes", pc.processes);
    visit("services", pc.services);
    visit("clockRate", pc.clockRate);
    visit("cleanBoot", pc.cleanBoot);
    visit("startedByScm", pc.startedByScm);
    visit("controlTimeoutMs", pc.controlTimeoutMs);
    visit("ports", pc.ports);
    visit("openPorts", pc.openPorts);
    visit("mailbox", pc.mailbox);
    visit("controlSocket", pc.controlSocket);
}

// ---- reading ----

void Expect(bool holds, const std::string& place, const char* what) {
    if (!holds)
        throw DescriptionError(place.empty() ? "description" : place, std::string("expected ") + what);
}

template <class T>
void Read(const Json::Value& json, const std::string& place, T& object);

void Read(const Json::Value& json, const std::string& place, std::string& text) {
    Expect(json.isString(), place, "a text");
    text = json.asString();
    if (text.find('\0') != std::string::npos) throw DescriptionError(place, "a text cannot hold a NUL");
}

void Read(const Json::Value& json, const std::string& place, bool& flag) {
    Expect(json.isBool(), place, "true or false");
    flag = json.asBool();
}

void Read(const Json::Value& json, const std::string& place, int32_t& number) {
    Expect(json.isInt(), place, "a whole number");
    number = json.asInt();
}

void Read(const Json::Value& json, const std::string& place, uint32_t& number) {
    Expect(json.isUInt(), place, "a whole number from 0 to 4294967295");
    number = json.asUInt();
}

void Read(const Json::Value& json, const std::string& place, uint64_t& number) {
    Expect(json.isUInt64(), place, "a whole number that is not negative");
    number = json.asUInt64();
}

void Read(const Json::Value& json, const std::string& place, uint16_t& port) {
    Expect(json.isUInt() && json.asUInt() <= std::numeric_limits<uint16_t>::max(), place, "a port number");
    port = static_cast<uint16_t>(json.asUInt());
}

void ReadKey(const std::string& text, const std::string&, std::string& key) {
    key = text;
}

void ReadKey(const std::string& text, const std::string& place, uint16_t& port) {
    const bool digits =
        !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string::npos;
    const unsigned long value = digits ? std::stoul(text) : std::numeric_limits<unsigned long>::max();
    Expect(value <= std::numeric_limits<uint16_t>::max(), place, "a port number as the key");
    port = static_cast<uint16_t>(value);
}

template <class Key, class T>
void Read(const Json::Value& json, const std::string& place, std::map<Key, T>& map) {
    Expect(json.isObject(), place, "an object");
    map.clear();
    for (const std::string& name : json.getMemberNames()) {
        const std::string entry = place + "." + name;
        Key key;
        ReadKey(name, entry, key);
        Read(json[name], entry, map[key]);
    }
}

template <class T>
void Read(const Json::Value& json, const std::string& place, std::vector<T>& list) {
    Expect(json.isArray(), place, "a list");
    list.clear();
    for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
        Read(json[i], place + "[" + std::to_string(i) + "]", list.emplace_back());
    }
}

// A key that is left out says the same as "real": what this machine has.
template <class T>
void Read(const Json::Value& json, const std::string& place, std::optional<T>& value) {
    if (json == kReal) {
        value.reset();
    } else {
        Read(json, place, value.emplace());
    }
}

template <class T>
void Read(const Json::Value& json, const std::string& place, T& object) {
    Expect(json.isObject(), place, "an object");
    const std::string prefix = place.empty() ? "" : place + ".";
    std::set<std::string> known;
    auto field = [&](const char* key, auto& value) {
        known.insert(key);
        if (json.isMember(key)) Read(json[key], prefix + key, value);
    };
    VisitFields(field, object);
    for (const std::string& name : json.getMemberNames()) {
        if (!known.contains(name)) throw DescriptionError(prefix + name, "unknown key");
    }
}

// ---- writing ----

template <class T>
Json::Value Write(const T& object);

template <class T>
requires std::is_arithmetic_v<T> || std::same_as<T, std::string> Json::Value Write(const T& value) {
    return value;
}

const std::string& WriteKey(const std::string& key) {
    return key;
}
std::string WriteKey(uint16_t key) {
    return std::to_string(key);
}

template <class Key, class T>
Json::Value Write(const std::map<Key, T>& map) {
    Json::Value json(Json::objectValue);
    for (const auto& [key, value] : map)
        json[WriteKey(key)] = Write(value);
    return json;
}

template <class T>
Json::Value Write(const std::vector<T>& list) {
    Json::Value json(Json::arrayValue);
    for (const T& value : list)
        json.append(Write(value));
    return json;
}

template <class T>
Json::Value Write(const std::optional<T>& value) {
    return value ? Write(*value) : Json::Value(kReal);
}

template <class T>
Json::Value Write(const T& object) {
    Json::Value json(Json::objectValue);
    auto field = [&](const char* key, const auto& value) { json[key] = Write(value); };
    VisitFields(field, object);
    return json;
}

}  // namespace

DescriptionError::DescriptionError(const std::string& place, const std::string& what)
    : std::runtime_error(OneLine(place + ": " + what)) {}

PcDescription DescriptionFromJson(const Json::Value& json) {
    PcDescription description;
    Read(json, "", description);
    CheckDescription(description);
    return description;
}

Json::Value DescriptionToJson(const PcDescription& description) {
    return Write(description);
}

PcDescription ReadDescriptionFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw DescriptionError(path, "cannot be read");
    Json::CharReaderBuilder strict;
    Json::CharReaderBuilder::strictMode(&strict.settings_);
    Json::Value json;
    std::string errors;
    try {
        if (!Json::parseFromStream(strict, file, &json, &errors)) {
            for (char& c : errors)
                if (c == '\n') c = ' ';
            throw DescriptionError(path, errors);
        }
    } catch (const Json::Exception& error) {
        throw DescriptionError(path, error.what());  // nested too deeply
    }
    try {
        return DescriptionFromJson(json);
    } catch (const DescriptionError& error) {
        throw DescriptionError(path, error.what());
    }
}

}  // namespace winhost
