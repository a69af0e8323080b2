#include "firmware/Encode.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string>
#include <string_view>

#include "firmware/Hex.h"
#include "testbed/Utf8.h"

namespace mpm {

namespace {

using Bytes = std::vector<uint8_t>;
constexpr const char* kBehind = "data";

[[noreturn]] void Refuse(const std::string& field, const std::string& why) {
    throw std::invalid_argument("\"" + field + "\" " + why);
}

template <class Number>
bool Parse(std::string_view text, Number& number) {
    const bool hex = text.starts_with("0x");
    if (hex) text.remove_prefix(2);
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
    return error == std::errc() && stop == text.data() + text.size();
}

Bytes LittleEndian(uint64_t number, size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < std::min<size_t>(size, 8); ++i)
        bytes[i] = uint8_t(number >> (8 * i));
    return bytes;
}

unsigned BitsOf(size_t size) {
    return 8 * unsigned(std::min<size_t>(size, 8));
}

Bytes Unsigned(const std::string& name, size_t size, const Json::Value& value) {
    const uint64_t most = UINT64_MAX >> (64 - BitsOf(size));
    uint64_t number = 0;
    bool fits = false;
    if (value.isString())
        fits = Parse(value.asString(), number);
    else if ((fits = value.isUInt64()))
        number = value.asUInt64();
    if (!fits || number > most) Refuse(name, "has to be a whole number from 0 to " + std::to_string(most));
    return LittleEndian(number, size);
}

Bytes Signed(const std::string& name, size_t size, const Json::Value& value) {
    const int64_t most = INT64_MAX >> (64 - BitsOf(size));
    int64_t number = 0;
    bool fits = false;
    if (value.isString())
        fits = Parse(value.asString(), number);
    else if ((fits = value.isInt64()))
        number = value.asInt64();
    if (!fits || number > most || number < -most - 1)
        Refuse(name,
               "has to be a whole number from " + std::to_string(-most - 1) + " to " + std::to_string(most));
    Bytes bytes = LittleEndian(uint64_t(number), size);
    for (size_t i = 8; i < size; ++i)
        bytes[i] = number < 0 ? 0xFF : 0;
    return bytes;
}

std::string TextOf(const std::string& name, const Json::Value& value) {
    if (!value.isString()) Refuse(name, "has to be a text");
    std::string text = value.asString();
    if (text.find('\0') != std::string::npos) Refuse(name, "must not contain the character 0");
    return text;
}

// Characters outside the first plane become pairs of surrogates.
Bytes WideText(const std::string& name, const Json::Value& value) {
    Bytes bytes;
    const auto add = [&bytes](uint32_t unit) {
        bytes.push_back(uint8_t(unit));
        bytes.push_back(uint8_t(unit >> 8));
    };
    for (const wchar_t character : testbed::FromUtf8(TextOf(name, value))) {
        const auto code = uint32_t(character);
        if (code < 0x10000) {
            add(code);
        } else {
            add(0xD800 + ((code - 0x10000) >> 10));
            add(0xDC00 + (code & 0x3FF));
        }
    }
    return bytes;
}

Bytes Address(const std::string& name, const Json::Value& value) {
    Bytes bytes(4);
    if (inet_pton(AF_INET, TextOf(name, value).c_str(), bytes.data()) != 1)
        Refuse(name, "has to be an IPv4 address");
    return bytes;
}

Bytes Port(const std::string& name, size_t size, const Json::Value& value) {
    Bytes bytes = Unsigned(name, 2, value);
    std::swap(bytes[0], bytes[1]);
    bytes.resize(size);
    return bytes;
}

// "4 bytes: 01 02 03 04" is taken too; a preview of more bytes has lost some.
Bytes Binary(const std::string& name, const Json::Value& value) {
    std::string text = TextOf(name, value);
    size_t expected = std::string::npos;
    if (const size_t unit = text.find(" byte"); unit != std::string::npos) {
        if (!Parse(std::string_view(text).substr(0, unit), expected))
            Refuse(name, "has to be bytes in hexadecimal");
        const size_t colon = text.find(':');
        text = colon == std::string::npos ? "" : text.substr(colon + 1);
    }
    Bytes bytes;
    try {
        bytes = FromHex(text);
    } catch (const std::invalid_argument&) {
        Refuse(name, "has to be bytes in hexadecimal");
    }
    if (expected != std::string::npos && bytes.size() != expected)
        Refuse(name, "does not have all of its bytes");
    return bytes;
}

Bytes Slots(const RecordField& field, const Json::Value& value) {
    if (!value.isArray()) Refuse(field.name, "has to be an array of records");
    const size_t room = field.size / field.element->maxSize;
    if (value.size() > room) Refuse(field.name, "has room for only " + std::to_string(room) + " records");
    Bytes bytes;
    for (const Json::Value& element : value) {
        const Bytes one = Encode(*field.element, element);
        bytes.insert(bytes.end(), one.begin(), one.end());
    }
    return bytes;
}

Bytes BytesOf(const RecordField& field, const Json::Value& value) {
    switch (field.kind) {
        case RecordField::Kind::Number:
            return Unsigned(field.name, field.size, value);
        case RecordField::Kind::Signed:
            return Signed(field.name, field.size, value);
        case RecordField::Kind::WideText:
            return WideText(field.name, value);
        case RecordField::Kind::Address:
            return Address(field.name, value);
        case RecordField::Kind::NetPort:
            return Port(field.name, field.size, value);
        case RecordField::Kind::Data:
        case RecordField::Kind::Reserved:
            return Binary(field.name, value);
        case RecordField::Kind::Slots:
            return Slots(field, value);
        case RecordField::Kind::Text:
        case RecordField::Kind::Secret:
            break;
    }
    const std::string text = TextOf(field.name, value);
    return {text.begin(), text.end()};
}

void Place(Bytes& record, size_t offset, size_t room, const std::string& name, const Bytes& bytes) {
    if (bytes.size() > room) Refuse(name, "has room for only " + std::to_string(room) + " bytes");
    record.resize(std::max(record.size(), offset + bytes.size()));
    std::copy(bytes.begin(), bytes.end(), record.begin() + ptrdiff_t(offset));
}

bool IsField(const RecordLayout& layout, const std::string& name) {
    return std::any_of(layout.fields.begin(), layout.fields.end(),
                       [&name](const RecordField& field) { return name == field.name; });
}

}  // namespace

std::vector<uint8_t> Encode(const RecordLayout& layout, const Json::Value& values) {
    if (!values.isObject()) throw std::invalid_argument("the fields of a record have to be an object");
    for (const std::string& name : values.getMemberNames())
        if (name != kBehind && !IsField(layout, name))
            Refuse(name, std::string("is no field of ") + layout.name);
    Bytes record(layout.minSize);
    size_t end = 0;
    for (const RecordField& field : layout.fields) {
        const size_t room = field.size == kRest ? layout.maxSize - field.offset : field.size;
        end = std::max(end, field.offset + field.size);
        if (!values.isMember(field.name)) continue;
        const Json::Value& value = values[field.name];
        Place(record, field.offset, room, field.name, BytesOf(field, value));
        if (const RecordField& count = layout.fields.front();
            field.kind == RecordField::Kind::Slots && !values.isMember(count.name))
            Place(record, count.offset, count.size, count.name, LittleEndian(value.size(), 2));
    }
    if (values.isMember(kBehind) && !IsField(layout, kBehind))
        Place(record, end, layout.maxSize - std::min(end, layout.maxSize), kBehind,
              Binary(kBehind, values[kBehind]));
    return record;
}

}  // namespace mpm
