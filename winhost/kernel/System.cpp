// What the PC is, and what it is called.
#include <sys/sysinfo.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"

using winhost::Fail;
using winhost::Pc;

namespace {

constexpr DWORD kAllocationGranularity = 64 * 1024;

}  // namespace

void GetNativeSystemInfo(LPSYSTEM_INFO info) {
    WINHOST_GATE_PASS("GetNativeSystemInfo");
    *info = {};
    info->wProcessorArchitecture = static_cast<WORD>(Pc::Instance().Description().processorArchitecture);
    info->dwPageSize = static_cast<DWORD>(sysconf(_SC_PAGESIZE));
    info->dwNumberOfProcessors = static_cast<DWORD>(get_nprocs());
    info->dwAllocationGranularity = kAllocationGranularity;
}

BOOL GetComputerNameExA(COMPUTER_NAME_FORMAT nameType, LPSTR buffer, LPDWORD size) {
    WINHOST_GATE("GetComputerNameExA", FALSE);
    if (!size || nameType != ComputerNameDnsDomain)
        return Fail(size ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER);
    const std::string name = Pc::Instance().Description().dnsDomain;
    if (!buffer || *size <= name.size()) {
        *size = static_cast<DWORD>(name.size() + 1);
        return Fail(ERROR_MORE_DATA);
    }
    std::memcpy(buffer, name.c_str(), name.size() + 1);
    *size = static_cast<DWORD>(name.size());
    return TRUE;
}
