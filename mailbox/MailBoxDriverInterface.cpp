// Finding, opening and closing the mailbox device.
#include "mailbox/MailBoxDriverInterface.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <utility>

#include "base/Log.h"

namespace {

// {70A9067B-708F-443C-84BA-BC391FDBF72B}
constexpr GUID kDeviceInterfaceClass = {
    0x70A9067B, 0x708F, 0x443C, {0x84, 0xBA, 0xBC, 0x39, 0x1F, 0xDB, 0xF7, 0x2B}};

// The log shows this name in place of the path that is opened.
constexpr const char* kDeviceNameInLog = R"(\\?\GLOBALROOT\Device\000000c8)";

// The search stops when the list neither ends nor advances; the caller retries later.
constexpr int kMaxRepeats = 1000;

void LogNoDevice() {
    LogError(
        "m_pDeviceInterfaceDetailData is NULL. No device interfaces present, returning ERROR_INVALID_ADDRESS "
        "to the "
        "caller");
}

struct FreeBlock {
    void operator()(void* block) const { std::free(block); }
};

using InterfaceDetail = std::shared_ptr<const SP_DEVICE_INTERFACE_DETAIL_DATA_A>;

uint32_t ReadInterfaceDetail(HDEVINFO list, SP_DEVICE_INTERFACE_DATA& device, InterfaceDetail& detail) {
    detail.reset();
    DWORD requiredLength = 0;
    if (!SetupDiGetDeviceInterfaceDetailA(list, &device, nullptr, 0, &requiredLength, nullptr)) {
        const DWORD error = GetLastError();
        if (error != ERROR_INSUFFICIENT_BUFFER) {
            LogInfo("SetupDiGetDeviceInterfaceDetail() API failed with error: %d", error);
            return error;
        }
    }
    if (requiredLength == 0) {
        LogInfo(
            "SetupDiGetDeviceInterfaceDetail() API returned requiredLength: %d, returning error "
            "ERROR_BAD_LENGTH to "
            "the caller",
            requiredLength);
        return ERROR_BAD_LENGTH;
    }
    const size_t size = std::max<size_t>(requiredLength, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A));
    std::unique_ptr<SP_DEVICE_INTERFACE_DETAIL_DATA_A, FreeBlock> block(
        static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(std::calloc(1, size)));
    if (!block) {
        LogInfo("Failed to allocate %d bytes for device interface details", requiredLength);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    block->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
    if (!SetupDiGetDeviceInterfaceDetailA(list, &device, block.get(), requiredLength, nullptr, nullptr)) {
        const DWORD error = GetLastError();
        LogInfo("SetupDiGetDeviceInterfaceDetail() API failed with error: %d", error);
        return error;
    }
    detail = std::move(block);
    return ERROR_SUCCESS;
}

// Keeps the last interface of the list that has a path.
uint32_t FindDeviceInterface(InterfaceDetail& detail) {
    const UniqueDeviceInfoList list(SetupDiGetClassDevsA(&kDeviceInterfaceClass, nullptr, nullptr,
                                                         DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
    if (!list) {
        const DWORD error = GetLastError();
        LogInfo("SetupDiGetClassDevs() API failed with error: %d", error);
        return error;
    }
    DWORD index = 0;
    for (int repeats = 0; repeats < kMaxRepeats;) {
        SP_DEVICE_INTERFACE_DATA device{};
        device.cbSize = sizeof device;
        if (!SetupDiEnumDeviceInterfaces(list.Get(), nullptr, &kDeviceInterfaceClass, index, &device)) {
            const DWORD error = GetLastError();
            if (error == ERROR_NO_MORE_ITEMS) {
                LogWarn("SetupDiEnumDeviceInterfaces() API returned: %d", error);
                return ERROR_SUCCESS;
            }
            detail.reset();
            ++repeats;
            continue;
        }
        if (const uint32_t error = ReadInterfaceDetail(list.Get(), device, detail)) return error;
        if (detail->DevicePath[0] == '\0') {
            ++repeats;
        } else {
            ++index;
        }
    }
    LogWarn("SetupDiEnumDeviceInterfaces() gave no usable interface in %d attempts", kMaxRepeats);
    return ERROR_INVALID_ADDRESS;
}

// The share mode is 0 although two handles are opened: the driver itself allows the second one.
HANDLE OpenHandle(const SP_DEVICE_INTERFACE_DETAIL_DATA_A& detail) {
    return CreateFileA(detail.DevicePath, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                       FILE_FLAG_OVERLAPPED, nullptr);
}

}  // namespace

MailBoxDriverInterface::~MailBoxDriverInterface() {
    if (IsOpen()) CloseMPMDevice();
}

uint32_t MailBoxDriverInterface::OpenMPMDevice() {
    InterfaceDetail detail;
    uint64_t closes = 0;
    {
        std::lock_guard lock(m_deviceMutex);
        detail = m_pDeviceInterfaceDetailData;
        closes = m_closes;
    }
    const uint32_t notFound = FindDeviceInterface(detail);
    {
        std::lock_guard lock(m_deviceMutex);
        m_pDeviceInterfaceDetailData = detail;
    }
    if (notFound) return notFound;
    if (!detail) {
        LogNoDevice();
        return ERROR_INVALID_ADDRESS;
    }
    if (IsOpen()) {
        LogInfo("Using an existing device handle");
    } else {
        UniqueFileHandle device(OpenHandle(*detail));
        if (!device) {
            const DWORD error = GetLastError();
            LogInfo("OpenMPMDevice: CreateFile(%s) API failed, with error %d", kDeviceNameInLog, error);
            return error;
        }
        if (const uint32_t error = InstallDevice(std::move(device), closes)) return error;
    }
    LogInfo("Open MPM Device Success");
    return ERROR_SUCCESS;
}

// Refuses the device when it has been closed since `closes` was read: nothing would close it a second time.
uint32_t MailBoxDriverInterface::InstallDevice(UniqueFileHandle device, uint64_t closes) {
    auto shared = std::make_shared<const UniqueFileHandle>(std::move(device));
    std::lock_guard lock(m_deviceMutex);
    if (m_closes != closes) {
        LogInfo("OpenMPMDevice: the device was closed during the open");
        return ERROR_OPERATION_ABORTED;
    }
    SetDevice(std::move(shared));
    return ERROR_SUCCESS;
}

MailBoxDriverInterface::SharedDevice MailBoxDriverInterface::Device() const {
    std::lock_guard lock(m_handleMutex);
    return m_hDevice;
}

MailBoxDriverInterface::SharedDevice MailBoxDriverInterface::SetDevice(SharedDevice device) {
    std::lock_guard lock(m_handleMutex);
    return std::exchange(m_hDevice, std::move(device));
}

HANDLE MailBoxDriverInterface::GetNewHandleToMPMDevice() {
    InterfaceDetail detail;
    {
        std::lock_guard lock(m_deviceMutex);
        detail = m_pDeviceInterfaceDetailData;
    }
    if (!detail) {
        LogNoDevice();
        return INVALID_HANDLE_VALUE;
    }
    if (detail->DevicePath[0] == '\0') {
        LogInfo("Using an existing device handle");
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE device = OpenHandle(*detail);
    if (device == INVALID_HANDLE_VALUE)
        LogError("%s: CreateFile(%s) API failed, with error %d", "GetNewHandleToMPMDevice", kDeviceNameInLog,
                 GetLastError());
    return device;
}

void MailBoxDriverInterface::CloseMPMDevice() {
    std::lock_guard lock(m_deviceMutex);
    ++m_closes;
    if (!m_pDeviceInterfaceDetailData) {
        LogNoDevice();
        return;
    }
    // The handle is removed before the cancellation: a request that is being made at this moment notices that
    // and cancels itself.
    const SharedDevice device = SetDevice(nullptr);
    if (!CancelIoEx(device ? device->Get() : INVALID_HANDLE_VALUE, nullptr)) {
        const DWORD error = GetLastError();
        if (error != ERROR_NOT_FOUND) LogInfo("CancelIoEx failed. Error status %d", error);
    }
}
