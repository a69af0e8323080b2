// The status that an OVERLAPPED holds, for the Win32 error that it stands for.
#pragma once

#include <minwindef.h>

namespace winhost {

// A number that no error has counts as ERROR_MR_MID_NOT_FOUND, as a status without an error does.
ULONG_PTR NtStatusOf(DWORD error);
DWORD ErrorOf(ULONG_PTR ntStatus);

}  // namespace winhost
