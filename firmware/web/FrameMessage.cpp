#include "firmware/web/FrameMessage.h"

#include <optional>

namespace mpm::web {

namespace {

enum ObuType : uint8_t { kSequenceHeader = 1, kFrameHeader = 3, kFrame = 6 };

// A little-endian number in groups of seven bits; the bytes move behind it.
std::optional<size_t> TakeNumber(std::span<const uint8_t>& bytes) {
    size_t number = 0;
    for (size_t i = 0; i < 8 && i < bytes.size(); ++i) {
        number |= size_t(bytes[i] & 0x7F) << (7 * i);
        if (bytes[i] & 0x80) continue;
        bytes = bytes.subspan(i + 1);
        return number;
    }
    return std::nullopt;
}

uint64_t Microseconds(std::chrono::system_clock::time_point time) {
    return uint64_t(std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count());
}

void Put(std::string& message, size_t offset, uint64_t number, size_t size) {
    for (size_t i = 0; i < size; ++i)
        message[offset + i] = char(uint8_t(number >> (8 * i)));
}

}  // namespace

std::string FrameHead::Message(size_t dataSize) const {
    std::string message(kSize + dataSize, '\0');
    Put(message, 0, uint8_t(kind), 1);
    Put(message, 1, key ? 1 : 0, 1);
    Put(message, 4, width, 4);
    Put(message, 8, height, 4);
    Put(message, 12, number, 4);
    Put(message, 16, Microseconds(asked), 8);
    Put(message, 24, Microseconds(complete), 8);
    return message;
}

bool IsKeyFrame(std::span<const uint8_t> unit) {
    bool hasSequence = false;
    while (!unit.empty()) {
        const uint8_t head = unit[0];
        const auto type = uint8_t(head >> 3 & 15);
        const bool hasExtension = head & 4, hasSize = head & 2;
        if (head & 0x80 || unit.size() < (hasExtension ? 2u : 1u)) return false;
        unit = unit.subspan(hasExtension ? 2 : 1);
        const auto size = hasSize ? TakeNumber(unit) : std::optional(unit.size());
        if (!size || *size > unit.size()) return false;
        hasSequence |= type == kSequenceHeader;
        // show_existing_frame is 0, frame_type is KEY_FRAME, show_frame is 1.
        if (type == kFrame || type == kFrameHeader)
            return hasSequence && *size > 0 && (unit[0] & 0xF0) == 0x10;
        unit = unit.subspan(*size);
    }
    return false;
}

}  // namespace mpm::web
