#include "tests/unit/firmware/RfbClient.h"

namespace mpm::test {

namespace {

uint8_t Widened(unsigned value, unsigned bits) {
    return uint8_t(value * 255 / ((1u << bits) - 1));
}

}  // namespace

// Fewer bytes when the stream ends.
std::vector<uint8_t> RfbClient::Read(size_t size) {
    while (m_input.size() < size) {
        const std::vector<uint8_t> more = m_receive();
        if (more.empty()) break;
        m_input.insert(m_input.end(), more.begin(), more.end());
    }
    const auto end = m_input.begin() + ptrdiff_t(std::min(size, m_input.size()));
    std::vector<uint8_t> bytes(m_input.begin(), end);
    m_input.erase(m_input.begin(), end);
    return bytes;
}

uint32_t RfbClient::Number(size_t bytes) {
    uint32_t number = 0;
    for (const uint8_t byte : Read(bytes))
        number = number << 8 | byte;
    return number;
}

bool RfbClient::Connect() {
    const std::vector<uint8_t> version = Read(12);
    if (std::string(version.begin(), version.end()) != "RFB 003.008\n") return false;
    m_send(version);
    const std::vector<uint8_t> kinds = Read(Number(1));
    if (kinds != std::vector<uint8_t>{1}) return false;
    Write({1});
    if (Number(4) != 0) return false;
    Write({1});
    width = uint16_t(Number(2));
    height = uint16_t(Number(2));
    Read(16);
    const std::vector<uint8_t> text = Read(Number(4));
    name.assign(text.begin(), text.end());
    pixels.assign(size_t(width) * height * 4, 0);
    // 32 bits, red in bits 16 to 23; raw alone.
    Write({0, 0, 0, 0, 32, 24, 0, 1, 0, 255, 0, 255, 0, 255, 16, 8, 0, 0, 0, 0});
    Write({2, 0, 0, 1, 0, 0, 0, 0});
    return width > 0;
}

void RfbClient::TakeSixteenBits() {
    m_pixelSize = 2;
    Write({0, 0, 0, 0, 16, 16, 1, 1, 0, 31, 0, 63, 0, 31, 11, 5, 0, 0, 0, 0});  // big-endian
}

void RfbClient::Request(bool incremental) {
    Write({3, uint8_t(incremental), 0, 0, 0, 0, uint8_t(width >> 8), uint8_t(width), uint8_t(height >> 8),
           uint8_t(height)});
}

bool RfbClient::TakeUpdate() {
    // The second byte has no meaning.
    const std::vector<uint8_t> head = Read(2);
    if (head.size() < 2 || head[0] != 0) return false;
    rectangles = Number(2);
    changedPixels = 0;
    for (size_t i = 0; i < rectangles; ++i) {
        const uint32_t x = Number(2), y = Number(2), across = Number(2), down = Number(2);
        if (Number(4) != 0 || x + across > width || y + down > height) return false;
        const std::vector<uint8_t> raw = Read(size_t(across) * down * m_pixelSize);
        if (raw.size() < size_t(across) * down * m_pixelSize) return false;
        changedPixels += size_t(across) * down;
        for (size_t at = 0; at < size_t(across) * down; ++at) {
            uint8_t* to = &pixels[((y + at / across) * width + x + at % across) * 4];
            const uint8_t* from = &raw[at * m_pixelSize];
            if (m_pixelSize == 4) {
                std::copy(from, from + 3, to);
            } else {
                const unsigned pixel = unsigned(from[0] << 8 | from[1]);
                to[0] = Widened(pixel & 31, 5);
                to[1] = Widened(pixel >> 5 & 63, 6);
                to[2] = Widened(pixel >> 11, 5);
            }
            to[3] = 255;
        }
    }
    return true;
}

void RfbClient::Key(bool down, uint32_t keysym) {
    Write({4, uint8_t(down), 0, 0, uint8_t(keysym >> 24), uint8_t(keysym >> 16), uint8_t(keysym >> 8),
           uint8_t(keysym)});
}

void RfbClient::Pointer(uint8_t buttons, uint16_t x, uint16_t y) {
    Write({5, buttons, uint8_t(x >> 8), uint8_t(x), uint8_t(y >> 8), uint8_t(y)});
}

}  // namespace mpm::test
