// The status that an OVERLAPPED holds, for the Win32 error that it stands for.
#pragma once

#include <minwindef.h>

namespace winhost {

ULONG_PTR NtStatusOf(DWORD error);
DWORD ErrorOf(ULONG_PTR ntStatus);

}  // namespace winhost
