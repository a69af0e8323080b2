// Win32 numbers for what the file system answers.
#pragma once

#include <string>

#include <minwindef.h>

namespace winhost {

// For errno after a call on `hostPath`: distinguishes a missing file from a missing folder on the way to it.
DWORD FileErrorOf(int error, const std::string& hostPath);

}  // namespace winhost
