// The service uses Windows paths. Streams and std::filesystem accept either separator on Windows.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

inline std::filesystem::path FilesystemPath(std::string windowsPath) {
    std::replace(windowsPath.begin(), windowsPath.end(), '\\', '/');
    return windowsPath;
}
