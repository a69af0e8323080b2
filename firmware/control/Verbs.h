// What a running simulator does for its control socket.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "firmware/Firmware.h"

namespace mpm::control {

// Carries out {"verb": "send" | "set" | "fault" | "show" | "screen" | "requests", ...} and returns the
// answer; throws std::exception with a sentence for people when it cannot.
Json::Value Handle(Firmware& firmware, const Json::Value& request);

std::string ToHex(std::span<const uint8_t> bytes);
// Pairs of hex digits, with or without blanks and colons between them; throws std::invalid_argument.
std::vector<uint8_t> FromHex(const std::string& text);

}  // namespace mpm::control
