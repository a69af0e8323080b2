// The service's paths are Windows paths; streams and std::filesystem take them with either separator there.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

inline std::filesystem::path FilesystemPath(std::string windowsPath) {
    std::replace(windowsPath.begin(), windowsPath.end(), '\\', '/');
    return windowsPath;
}
