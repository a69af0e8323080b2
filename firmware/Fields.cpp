#include "firmware/Fields.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "testbed/Utf8.h"

namespace mpm {

namespace {

constexpr size_t kPreviewBytes = 16;

uint64_t Number(std::span<const uint8_t> bytes) {
    uint64_t value = 0;
    for (size_t i = 0; i < std::min<size_t>(bytes.size(), 8); ++i)
        value |= uint64_t(bytes[i]) << (8 * i);
    return value;
}

int64_t Signed(std::span<const uint8_t> bytes) {
    const unsigned unused = 64 - 8 * unsigned(std::min<size_t>(bytes.size(), 8));
    return int64_t(Number(bytes) << unused) >> unused;
}

std::string Text(std::span<const uint8_t> bytes) {
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
}

std::string WideText(std::span<const uint8_t> bytes) {
    std::u16string text;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto unit = char16_t(Number(bytes.subspan(i, 2)));
        if (unit == 0) break;
        text += unit;
    }
    return testbed::ToUtf8(text);
}

std::string Address(std::span<const uint8_t> bytes) {
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
    return text;
}

std::string Secret(std::span<const uint8_t> bytes) {
    const auto last = std::find_if(bytes.rbegin(), bytes.rend(), [](uint8_t byte) { return byte != 0; });
    return "(" + std::to_string(bytes.rend() - last) + " bytes, not shown)";
}

Json::Value Slots(std::span<const uint8_t> bytes, const RecordLayout& element, size_t count) {
    Json::Value slots(Json::arrayValue);
    const size_t size = element.maxSize;
    for (size_t i = 0; i < count && (i + 1) * size <= bytes.size(); ++i)
        slots.append(Decode(element.fields, bytes.subspan(i * size, size)));
    return slots;
}

Json::Value Value(const RecordField& field, std::span<const uint8_t> bytes, std::span<const uint8_t> record,
                  Secrets secrets) {
    switch (field.kind) {
        case RecordField::Kind::Signed:
            return Json::Value(Json::Int64(Signed(bytes)));
        case RecordField::Kind::Text:
            return Text(bytes);
        case RecordField::Kind::WideText:
            return WideText(bytes);
        case RecordField::Kind::Address:
            return Address(bytes);
        case RecordField::Kind::NetPort:
            return bytes[0] << 8 | bytes[1];
        case RecordField::Kind::Data:
        case RecordField::Kind::Reserved:
            return Preview(bytes);
        case RecordField::Kind::Secret:
            return secrets == Secrets::Shown ? Text(bytes) : Secret(bytes);
        case RecordField::Kind::Slots:
            return Slots(bytes, *field.element, size_t(Number(record.first(2))));
        case RecordField::Kind::Number:
            break;
    }
    // A number compares equal to an int of the same value only when it is signed itself.
    const uint64_t number = Number(bytes);
    return number > INT64_MAX ? Json::Value(Json::UInt64(number)) : Json::Value(Json::Int64(number));
}

bool MayBeCut(RecordField::Kind kind) {
    return kind == RecordField::Kind::Text || kind == RecordField::Kind::WideText ||
           kind == RecordField::Kind::Data || kind == RecordField::Kind::Secret;
}

bool IsEmptyReserve(const RecordField& field, std::span<const uint8_t> bytes) {
    return field.kind == RecordField::Kind::Reserved &&
           std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
}

}  // namespace

std::string Preview(std::span<const uint8_t> bytes) {
    std::string text = std::to_string(bytes.size()) + (bytes.size() == 1 ? " byte" : " bytes");
    for (size_t i = 0; i < std::min(bytes.size(), kPreviewBytes); ++i) {
        char hex[4];
        std::snprintf(hex, sizeof hex, " %02x", bytes[i]);
        text += i ? hex : std::string(":") + hex;
    }
    return bytes.size() > kPreviewBytes ? text + " ..." : text;
}

Json::Value Decode(std::span<const RecordField> fields, std::span<const uint8_t> bytes, Secrets secrets) {
    Json::Value object(Json::objectValue);
    size_t end = 0;
    for (const RecordField& field : fields) {
        const size_t left = bytes.size() - std::min(bytes.size(), field.offset);
        const size_t size = field.size == kRest ? left : field.size;
        end = std::max(end, field.offset + size);
        const bool whole = size <= left && field.offset <= bytes.size();
        if (!whole && (left == 0 || !MayBeCut(field.kind))) continue;
        const auto part = bytes.subspan(field.offset, std::min(size, left));
        if (!IsEmptyReserve(field, part)) object[field.name] = Value(field, part, bytes, secrets);
    }
    if (bytes.size() > end) object["data"] = Preview(bytes.subspan(end));
    return object;
}

}  // namespace mpm
