#include "winhost/pc/OsVersion.h"

#include <cstdio>

namespace winhost {

std::optional<OsVersion> ParseOsVersion(const std::string& text) {
    if (text.find_first_not_of("0123456789.") != std::string::npos) return std::nullopt;
    OsVersion version;
    int end = 0;
    const int found =
        std::sscanf(text.c_str(), "%9u.%9u.%9u%n", &version.major, &version.minor, &version.build, &end);
    if (found != 3 || static_cast<size_t>(end) != text.size()) return std::nullopt;
    return version;
}

}  // namespace winhost
