#include "winhost/io/NtStatus.h"

#include <winerror.h>

namespace winhost {

namespace {

struct Row {
    DWORD error;
    uint32_t status;
};

constexpr Row kRows[] = {
    {ERROR_SUCCESS, 0},
    {ERROR_INVALID_FUNCTION, 0xC0000010},
    {ERROR_ACCESS_DENIED, 0xC0000022},
    {ERROR_INVALID_HANDLE, 0xC0000008},
    {ERROR_NOT_READY, 0xC00000A3},
    {ERROR_BAD_LENGTH, 0xC0000004},
    {ERROR_GEN_FAILURE, 0xC0000001},
    {ERROR_NOT_SUPPORTED, 0xC00000BB},
    {ERROR_INVALID_PARAMETER, 0xC000000D},
    {ERROR_SEM_TIMEOUT, 0xC00000B5},
    {ERROR_INSUFFICIENT_BUFFER, 0xC0000023},
    {ERROR_MORE_DATA, 0x80000005},
    {ERROR_OPERATION_ABORTED, 0xC0000120},
    {ERROR_IO_DEVICE, 0xC0000185},
    {ERROR_DEVICE_NOT_CONNECTED, 0xC000009D},
    {ERROR_NOT_FOUND, 0xC0000225},
    {ERROR_NO_SYSTEM_RESOURCES, 0xC000009A},
};

// Any other error travels in the facility that is made for it, which has room for those that Windows has.
constexpr uint32_t kWin32Facility = 0xC0070000;
constexpr DWORD kHighestError = 0xFFFF;

}  // namespace

ULONG_PTR NtStatusOf(DWORD error) {
    for (const Row& row : kRows)
        if (row.error == error) return row.status;
    return kWin32Facility | (error <= kHighestError ? error : DWORD{ERROR_MR_MID_NOT_FOUND});
}

DWORD ErrorOf(ULONG_PTR ntStatus) {
    for (const Row& row : kRows)
        if (row.status == ntStatus) return row.error;
    return static_cast<DWORD>(ntStatus & kHighestError);
}

}  // namespace winhost
