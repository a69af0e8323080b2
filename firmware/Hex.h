// Bytes as hexadecimal text.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace mpm {

std::string ToHex(std::span<const uint8_t> bytes);
// Pairs of hex digits, with or without blanks and colons between them; throws std::invalid_argument.
std::vector<uint8_t> FromHex(const std::string& text);

}  // namespace mpm
