// The PC's device interfaces: that of the mailbox, while the firmware is there.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <setupapi.h>
#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/core/Results.h"
#include "winhost/io/MailboxDevice.h"

using winhost::Fail;
using winhost::HandleTable;

namespace {

constexpr GUID kMailboxClass = {0x70A9067B, 0x708F, 0x443C, {0x84, 0xBA, 0xBC, 0x39, 0x1F, 0xDB, 0xF7, 0x2B}};

// The interfaces that were there when the list was made.
struct DeviceInfoSet : winhost::Object {
    bool IsClosedByCloseHandle() const override { return false; }
    GUID interfaceClass{};
    std::vector<std::string> paths;
};

}  // namespace

HDEVINFO SetupDiGetClassDevsA(const GUID* classGuid, PCSTR enumerator, HWND, DWORD flags) {
    WINHOST_GATE("SetupDiGetClassDevsA", INVALID_HANDLE_VALUE);
    if (!classGuid || enumerator || flags != (DIGCF_PRESENT | DIGCF_DEVICEINTERFACE))
        return Fail(classGuid ? ERROR_NOT_SUPPORTED : ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
    const auto set = std::make_shared<DeviceInfoSet>();
    set->interfaceClass = *classGuid;
    if (*classGuid == kMailboxClass && winhost::MailboxDevice::Instance().IsPresent())
        set->paths = winhost::MailboxDevice::Instance().ListedPaths();
    const HANDLE handle = HandleTable::Instance().Add(set);
    if (handle) return handle;
    return Fail(ERROR_NO_SYSTEM_RESOURCES, INVALID_HANDLE_VALUE);
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO handle, PSP_DEVINFO_DATA device, const GUID* interfaceClass,
                                 DWORD index, PSP_DEVICE_INTERFACE_DATA interfaceData) {
    WINHOST_GATE("SetupDiEnumDeviceInterfaces", FALSE);
    const auto set = HandleTable::Instance().Find<DeviceInfoSet>(handle);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (device) return Fail(ERROR_NOT_SUPPORTED);
    if (!interfaceClass || !interfaceData) return Fail(ERROR_INVALID_PARAMETER);
    if (interfaceData->cbSize != sizeof *interfaceData) return Fail(ERROR_INVALID_USER_BUFFER);
    if (!(*interfaceClass == set->interfaceClass) || index >= set->paths.size())
        return Fail(ERROR_NO_MORE_ITEMS);
    interfaceData->InterfaceClassGuid = set->interfaceClass;
    interfaceData->Flags = SPINT_ACTIVE;
    interfaceData->Reserved = index + 1;
    return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailA(HDEVINFO handle, PSP_DEVICE_INTERFACE_DATA interfaceData,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_A detail, DWORD size,
                                      PDWORD requiredSize, PSP_DEVINFO_DATA device) {
    WINHOST_GATE("SetupDiGetDeviceInterfaceDetailA", FALSE);
    const auto set = HandleTable::Instance().Find<DeviceInfoSet>(handle);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (device) return Fail(ERROR_NOT_SUPPORTED);
    if (!interfaceData || interfaceData->cbSize != sizeof *interfaceData || interfaceData->Reserved == 0 ||
        interfaceData->Reserved > set->paths.size())
        return Fail(ERROR_INVALID_PARAMETER);
    if (detail && detail->cbSize != sizeof *detail) return Fail(ERROR_INVALID_USER_BUFFER);
    if (!detail && size != 0) return Fail(ERROR_INVALID_USER_BUFFER);
    const std::string& path = set->paths[interfaceData->Reserved - 1];
    const size_t needed = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) + path.size() + 1;
    if (requiredSize) *requiredSize = static_cast<DWORD>(needed);
    if (size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(detail->DevicePath, path.c_str(), path.size() + 1);
    return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO handle) {
    WINHOST_GATE("SetupDiDestroyDeviceInfoList", FALSE);
    return HandleTable::Instance().Close<DeviceInfoSet>(handle) ? TRUE : Fail(ERROR_INVALID_HANDLE);
}
