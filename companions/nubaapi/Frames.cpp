#include "companions/nubaapi/Frames.h"

namespace {

constexpr size_t kHead = 9;

}  // namespace

std::string Number(uint32_t number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift);
    return bytes;
}

uint32_t NumberOf(std::string_view bytes) {
    uint32_t number = 0;
    if (bytes.size() != sizeof number) return 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<uint8_t>(byte);
    return number;
}

std::string Encode(FrameType type, uint32_t stream, std::string_view payload) {
    std::string frame(1, static_cast<char>(type));
    frame += Number(stream) + Number(static_cast<uint32_t>(payload.size()));
    return frame.append(payload);
}

std::optional<Frame> FrameReader::Next(bool& broken) {
    if (m_bytes.size() < kHead) return std::nullopt;
    const uint32_t length = NumberOf(std::string_view(m_bytes).substr(5, 4));
    broken = length > kMaxPayload;
    if (broken || m_bytes.size() < kHead + length) return std::nullopt;
    Frame frame{static_cast<FrameType>(m_bytes[0]), NumberOf(std::string_view(m_bytes).substr(1, 4)),
                m_bytes.substr(kHead, length)};
    m_bytes.erase(0, kHead + length);
    return frame;
}
