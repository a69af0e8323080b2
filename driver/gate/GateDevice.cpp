#include "driver/gate/GateDevice.h"

#include <array>
#include <cstring>

DWORD GateDevice::Open(HANDLE stop, HANDLE over) {
    m_stop = stop;
    m_over = over;
    m_device.Reset(CreateFileA(MPMGATE_DEVICE_PATH, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                               FILE_FLAG_OVERLAPPED, nullptr));
    if (!m_device) return GetLastError();
    // Wine answers before the driver has seen the opening, and whatever it said. A completion of no request
    // shows that it agreed.
    std::array<uint8_t, sizeof(MpmCompletion)> nothing;
    const DWORD error = Complete(0, ERROR_SUCCESS, nothing);
    return error == ERROR_NOT_FOUND ? ERROR_SUCCESS : error;
}

DWORD GateDevice::Call(DWORD code, std::span<uint8_t> input, std::span<uint8_t> output, DWORD* returned) {
    UniqueHandle event(CreateEventA(nullptr, TRUE, FALSE, nullptr));
    if (!event) return GetLastError();
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.Get();
    if (!DeviceIoControl(m_device.Get(), code, input.data(), static_cast<DWORD>(input.size()), output.data(),
                         static_cast<DWORD>(output.size()), nullptr, &overlapped) &&
        GetLastError() != ERROR_IO_PENDING)
        return GetLastError();
    const HANDLE ends[] = {event.Get(), m_stop, m_over};
    if (WaitForMultipleObjects(3, ends, FALSE, INFINITE) != WAIT_OBJECT_0)
        CancelIoEx(m_device.Get(), &overlapped);
    return GetOverlappedResult(m_device.Get(), &overlapped, returned, TRUE) ? ERROR_SUCCESS : GetLastError();
}

DWORD GateDevice::Next(std::vector<uint8_t>& buffer) {
    buffer.resize(sizeof(MpmNotice) + MPMBOX_MAX_TRANSFER);
    DWORD returned = 0;
    const DWORD error = Call(MPMGATE_NEXT, {}, buffer, &returned);
    if (error == ERROR_SUCCESS && returned < sizeof(MpmNotice)) return ERROR_INVALID_DATA;
    buffer.resize(returned);
    return error;
}

DWORD GateDevice::Complete(uint32_t request, uint32_t error, std::span<uint8_t> answer) {
    const MpmCompletion completion{request, error};
    std::memcpy(answer.data(), &completion, sizeof completion);
    DWORD returned = 0;
    return Call(MPMGATE_COMPLETE, answer, {}, &returned);
}

DWORD GateDevice::Deliver(uint32_t handle, std::span<uint8_t> message) {
    const MpmDelivery delivery{handle};
    std::memcpy(message.data(), &delivery, sizeof delivery);
    DWORD returned = 0;
    return Call(MPMGATE_DELIVER, message, {}, &returned);
}
