// The ring of the firmware's log records: its allocation, its release, and the reader that copies each record
// to the log. Nothing calls these three yet.
#include <algorithm>
#include <atomic>
#include <string>

#include "base/Log.h"
#include "mailbox/FirmwareLogRing.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "mailbox/Requests.h"

namespace {

constexpr DWORD kBadIndexPause = 2000;  // milliseconds
// The reader leaves out the last record of the ring when the write index has wrapped. This is required
// behaviour.
constexpr uint32_t kEndBeforeWrap = FirmwareLogRing::kLastIndex;

// Waits for a pending request. Returns 0 or the error that the caller returns.
DWORD AwaitLogBuffer(const char* name, HANDLE device, OVERLAPPED& overlapped, DWORD pending) {
    DWORD bytesReturned = 0;
    if (WaitForSingleObject(overlapped.hEvent, INFINITE) != WAIT_OBJECT_0) {
        LogError("LogBuffer: WaitForSingleObject unexpected return with error: %u", GetLastError());
        // The driver owns the buffers until the request has ended.
        CancelIoEx(device, &overlapped);
        GetOverlappedResult(device, &overlapped, &bytesReturned, TRUE);
        return pending;
    }
    if (!GetOverlappedResult(device, &overlapped, &bytesReturned, FALSE)) {
        const DWORD error = GetLastError();
        LogError("LogBuffer: GetOverlappedResult failed for %s with error: %u", name, error);
        return error;
    }
    if (bytesReturned != 0)
        LogInfo("LogBuffer: Asynchronous IO completed for %s readbytes is %d", name, bytesReturned);
    return pending;
}

// A record that does not end within its bytes runs on into the next one. The ring itself ends it. A line of
// the log is never longer than a message.
void LogRecords(const FirmwareLogRing& ring, uint32_t begin, uint32_t end) {
    const char* const limit = ring.records[FirmwareLogRing::kLastIndex] + FirmwareLogRing::kRecordSize;
    for (uint32_t index = begin; index < end; ++index) {
        const char* const text = ring.records[index];
        const size_t most = std::min<size_t>(limit - text, logging::kMessageSize);
        LogInfo("LogBuffer: %s", std::string(text, std::find(text, text + most, '\0')));
    }
}

}  // namespace

uint32_t MailBoxDriverInterface::AllocateLogBuffer() {
    return RequestLogBuffer("AllocateLogBuffer", MailboxCode::AllocateLogBuffer);
}

uint32_t MailBoxDriverInterface::DeAllocateLogBuffer() {
    return RequestLogBuffer("DeAllocateLogBuffer", MailboxCode::ReleaseLogBuffer);
}

uint32_t MailBoxDriverInterface::RequestLogBuffer(const char* name, uint32_t code) {
    static_assert(sizeof m_pLogBuffer == 8);
    const SharedDevice device = Device();
    if (!device) {
        LogError("LogBuffer: Invalid Handle");
        return ERROR_INVALID_HANDLE;
    }
    const UniqueHandle event(CreateEventA(nullptr, FALSE, FALSE, nullptr));
    if (!event) {
        const DWORD error = GetLastError();
        LogError("LogBuffer: Error creating overlapped event for interrupt thread - with error: %u", error);
        return error;
    }
    OVERLAPPED overlapped{};
    overlapped.hEvent = event.Get();
    const PendingRequests::Request registered(m_pendingRequests, device->Get(), overlapped);
    const BOOL completed = DeviceIoControl(device->Get(), code, nullptr, 0, &m_pLogBuffer,
                                           sizeof m_pLogBuffer, nullptr, &overlapped);
    const DWORD error = GetLastError();
    // The request may still be pending, so the line may show the pointer as it was.
    if (code == MailboxCode::AllocateLogBuffer)
        LogInfo("IOCTL_GET_ALLOCATE_LOG_BUFFER ptrBuffer %p", m_pLogBuffer);
    if (completed || error != ERROR_IO_PENDING) {
        LogError("LogBuffer: Asynchronous %s command failed with error: %u", name, error);
        return error;
    }
    // CloseMPMDevice may have cancelled the other requests just before this one was made.
    if (Device() != device) CancelIoEx(device->Get(), &overlapped);
    return AwaitLogBuffer(name, device->Get(), overlapped, error);
}

void MailBoxDriverInterface::ReadLogBuffer(const std::atomic<uint8_t>& serviceStopping) {
    LogInfo("LogBuffer: entry.");
    auto* const ring = static_cast<FirmwareLogRing*>(m_pLogBuffer);
    if (!ring) {
        LogWarn("LogBuffer: Log Buffer pointer returned NULL. Disabling Log Buffer.");
        return;
    }
    const std::atomic_ref readIndex(ring->readIndex), writeIndex(ring->writeIndex);
    readIndex = 0;
    while (!serviceStopping) {
        const uint32_t read = readIndex, write = writeIndex;
        if (write > FirmwareLogRing::kLastIndex || read > FirmwareLogRing::kLastIndex) {
            LogError("LogBuffer: Read / write log buffer pointer is pointing to invalid address!!!");
            LogError("LogBuffer: Read pointer is 0x%x write pointer is 0x%x", read, write);
            Sleep(kBadIndexPause);
            continue;
        }
        if (write > read) {
            LogRecords(*ring, read, write);
        } else if (write < read) {
            LogRecords(*ring, read, kEndBeforeWrap);
            LogRecords(*ring, 0, write);
        }
        readIndex = write;
        if (serviceStopping) break;
        Sleep(0);
    }
    LogInfo("LogBuffer: exit.");
}
