// The function on which every request is built.
#include "base/Log.h"
#include "mailbox/MailBoxDriverInterface.h"

namespace {

constexpr const char* kName = "SendIOCtlToDriver";

bool PassesClosedGate(uint32_t code) {
    return code == MailboxCode::WriteZELStatus || code == MailboxCode::GetMPMStatus;
}

// Waits for a pending request. Returns 0 or the error with which the request ended.
DWORD AwaitAnswer(HANDLE device, OVERLAPPED& overlapped, DWORD* bytesReturned) {
    // If the firmware does not answer, this thread blocks until its request is cancelled.
    const DWORD status = WaitForSingleObject(overlapped.hEvent, INFINITE);
    if (status != WAIT_OBJECT_0) {
        LogError("%s: WaitForSingleObject unexpected return code, status: %u", kName, status);
        // The driver owns the buffers until the request has ended.
        CancelIoEx(device, &overlapped);
        GetOverlappedResult(device, &overlapped, bytesReturned, TRUE);
        return ERROR_IO_PENDING;
    }
    if (!GetOverlappedResult(device, &overlapped, bytesReturned, FALSE)) {
        const DWORD error = GetLastError();
        LogError("GetOverlappedResult failed for %s with error: %u", kName, error);
        return error;
    }
    if (*bytesReturned != 0)
        LogInfo("Asynchronous IO completed for %s readbytes is %d", kName, *bytesReturned);
    return ERROR_SUCCESS;
}

}  // namespace

uint32_t MailBoxDriverInterface::SendIOCtlToDriver(uint32_t dwIoControlCode, const void* lpInBuffer,
                                                   uint32_t nInBufferSize, DWORD* lpBytesReturned,
                                                   void* lpOutBuffer, uint32_t nOutBufferSize) {
    // The log shows the function number of a control code, not the whole code.
    LogInfo("Enter MailBoxDriverInterface::, %s(), dwIoControlCode = 0x%x, nInBufferSize = %d", kName,
            FunctionOf(dwIoControlCode), nInBufferSize);
    const SharedDevice device = Device();
    if (!device) {
        LogError("%s: Error Invalid Handle, returning: %d to the caller", kName, ERROR_INVALID_HANDLE);
        return ERROR_INVALID_HANDLE;
    }
    if (!m_bServiceUp && !PassesClosedGate(dwIoControlCode)) {
        LogError("%s: Error Service is not signalled as Up, returning: %d to the caller", kName,
                 ERROR_SERVICE_NOT_ACTIVE);
        return ERROR_SERVICE_NOT_ACTIVE;
    }
    if (!lpBytesReturned) {
        LogError(
            "%s: lpBytesReturned is NULL, returning ERROR_INVALID_ADDRESS to the caller, dwIoControlCode = "
            "%d",
            kName, dwIoControlCode);
        return ERROR_INVALID_ADDRESS;
    }
    *lpBytesReturned = 0;
    // One event for each call, so that callers share nothing.
    const UniqueHandle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!event) {
        const DWORD error = GetLastError();
        LogError(
            "%s: CreateEvent() API failed, Error creating overlapped event for interrupt thread - "
            "GetLastError: %d",
            kName, error);
        return error;
    }
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.Get();
    const PendingRequests::Request registered(m_pendingRequests, device->Get(), overlapped);
    const BOOL completed = DeviceIoControl(device->Get(), dwIoControlCode, const_cast<void*>(lpInBuffer),
                                           nInBufferSize, lpOutBuffer, nOutBufferSize, nullptr, &overlapped);
    DWORD error = GetLastError();
    // The driver pends every request. A request that completes at once counts as failed, whatever its result.
    if (completed || error != ERROR_IO_PENDING) {
        LogError("DeviceIoControl() -- Asynchronous %s command failed, GetLastError: %d", kName, error);
        return error;
    }
    // CloseMPMDevice may have cancelled the other requests just before this one was made.
    if (Device() != device) CancelIoEx(device->Get(), &overlapped);
    error = AwaitAnswer(device->Get(), overlapped, lpBytesReturned);
    if (error != ERROR_SUCCESS)
        LogError("Return from MailBoxDriverInterface::%s(), dwIoControlCode = 0x%x, with dwLastError = %u",
                 kName, FunctionOf(dwIoControlCode), error);
    return error;
}
