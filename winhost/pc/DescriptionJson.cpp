#include "winhost/pc/DescriptionJson.h"

#include <json/reader.h>

#include <concepts>
#include <fstream>
#include <limits>
#include <set>

#include "testbed/Numbers.h"

namespace winhost {
namespace {

constexpr const char* kReal = "real";

std::string OneLine(std::string text) {
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = '?';
    return text;
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
    const auto number = testbed::ParseNumber<uint16_t>(text);
    Expect(number.has_value(), place, "a port number as the key");
    port = *number;
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
