// Finding, opening and closing the mailbox device.
#include "mailbox/MailBoxDriverInterface.h"

#include <algorithm>
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

}  // namespace

MailBoxDriverInterface::~MailBoxDriverInterface() {
    if (IsOpen()) CloseMPMDevice();
}

uint32_t MailBoxDriverInterface::OpenMPMDevice() {
    std::lock_guard lock(m_deviceMutex);
    if (const uint32_t error = FindDeviceInterface()) return error;
    if (!m_pDeviceInterfaceDetailData) {
        LogNoDevice();
        return ERROR_INVALID_ADDRESS;
    }
    if (IsOpen()) {
        LogInfo("Using an existing device handle");
    } else {
        UniqueFileHandle device(OpenHandle());
        if (!device) {
            const DWORD error = GetLastError();
            LogInfo("OpenMPMDevice: CreateFile(%s) API failed, with error %d", kDeviceNameInLog, error);
            return error;
        }
        SetDevice(std::make_shared<const UniqueFileHandle>(std::move(device)));
    }
    LogInfo("Open MPM Device Success");
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

// Keeps the last interface of the list that has a path.
uint32_t MailBoxDriverInterface::FindDeviceInterface() {
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
            m_pDeviceInterfaceDetailData.reset();
            ++repeats;
            continue;
        }
        if (const uint32_t error = ReadInterfaceDetail(list.Get(), device)) return error;
        if (m_pDeviceInterfaceDetailData->DevicePath[0] == '\0') {
            ++repeats;
        } else {
            ++index;
        }
    }
    LogWarn("SetupDiEnumDeviceInterfaces() gave no usable interface in %d attempts", kMaxRepeats);
    return ERROR_INVALID_ADDRESS;
}

uint32_t MailBoxDriverInterface::ReadInterfaceDetail(HDEVINFO list, SP_DEVICE_INTERFACE_DATA& device) {
    m_pDeviceInterfaceDetailData.reset();
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
    m_pDeviceInterfaceDetailData.reset(static_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(std::calloc(1, size)));
    if (!m_pDeviceInterfaceDetailData) {
        LogInfo("Failed to allocate %d bytes for device interface details", requiredLength);
        return ERROR_NOT_ENOUGH_MEMORY;
    }
    m_pDeviceInterfaceDetailData->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
    if (!SetupDiGetDeviceInterfaceDetailA(list, &device, m_pDeviceInterfaceDetailData.get(), requiredLength,
                                          nullptr, nullptr)) {
        const DWORD error = GetLastError();
        LogInfo("SetupDiGetDeviceInterfaceDetail() API failed with error: %d", error);
        m_pDeviceInterfaceDetailData.reset();
        return error;
    }
    return ERROR_SUCCESS;
}

// The share mode is 0 although two handles are opened: the driver itself allows the second one.
HANDLE MailBoxDriverInterface::OpenHandle() const {
    return CreateFileA(m_pDeviceInterfaceDetailData->DevicePath, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                       OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
}

HANDLE MailBoxDriverInterface::GetNewHandleToMPMDevice() {
    std::lock_guard lock(m_deviceMutex);
    if (!m_pDeviceInterfaceDetailData) {
        LogNoDevice();
        return INVALID_HANDLE_VALUE;
    }
    if (m_pDeviceInterfaceDetailData->DevicePath[0] == '\0') {
        LogInfo("Using an existing device handle");
        return INVALID_HANDLE_VALUE;
    }
    const HANDLE device = OpenHandle();
    if (device == INVALID_HANDLE_VALUE)
        LogError("%s: CreateFile(%s) API failed, with error %d", "GetNewHandleToMPMDevice", kDeviceNameInLog,
                 GetLastError());
    return device;
}

void MailBoxDriverInterface::CloseMPMDevice() {
    std::lock_guard lock(m_deviceMutex);
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
