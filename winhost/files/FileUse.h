// What keeps a file of the PC from being changed, apart from its rights. All paths are the host's.
#pragma once

#include <string>

namespace winhost {

// Follows a link.
bool IsFolder(const std::string& path);
// A file whose owner may not write to it on Linux; a link is not followed.
bool IsReadOnly(const std::string& path);
// Whether a process of the PC runs this file; a link is not followed.
bool IsRunning(const std::string& path);

}  // namespace winhost
