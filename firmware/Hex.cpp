#include "firmware/Hex.h"

#include <cctype>
#include <stdexcept>

namespace mpm {

std::string ToHex(std::span<const uint8_t> bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes)
        (text += kDigits[byte >> 4]) += kDigits[byte & 15];
    return text;
}

std::vector<uint8_t> FromHex(const std::string& text) {
    std::vector<uint8_t> bytes;
    int high = -1;
    for (const char c : text) {
        if (high < 0 && (c == ' ' || c == ':')) continue;
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            throw std::invalid_argument("not hexadecimal: " + text.substr(0, 40));
        const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (c | 0x20) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(uint8_t(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) throw std::invalid_argument("an odd number of hexadecimal digits");
    return bytes;
}

}  // namespace mpm
