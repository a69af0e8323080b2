#pragma once

#include <minwindef.h>

namespace winhost {

// True for a handle of CreateThread.
bool IsThread(HANDLE handle);

}  // namespace winhost
