// The version of the PC's system.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace winhost {

struct OsVersion {
    uint32_t major = 0, minor = 0, build = 0;
};

// "10.0.19045"; nothing for another text.
std::optional<OsVersion> ParseOsVersion(const std::string& text);

}  // namespace winhost
