#include "mailbox/MailboxReadLoop.h"

#include <array>
#include <exception>
#include <new>
#include <vector>

#include "base/Log.h"
#include "mailbox/MailboxCodes.h"

namespace {

constexpr const char* kName = "ReadFromMailBoxDriverThread";
constexpr size_t kSlots = 10;
constexpr DWORD kDrainMilliseconds = 500;

}  // namespace

// The driver writes into these while reads are pending. The position of a read's OVERLAPPED is its slot.
struct MailboxReadLoop::Slots {
    std::array<OVERLAPPED, kSlots> overlapped{};
    std::array<std::shared_ptr<uint8_t[]>, kSlots> buffers;
};

void MailboxReadLoop::Run(MailBoxDriverInterface& mailbox, const std::atomic<uint8_t>& stopping,
                          const Dispatch& dispatch) {
    LogInfo("Call GetNewHandleToMPMDevice from %s", kName);
    UniqueFileHandle device(mailbox.GetNewHandleToMPMDevice());
    if (!device) {
        LogError("GetNewHandleToMPMDevice failed with INVALID_HANDLE_VALUE");
        return;
    }
    LogInfo("Call CreateIoCompletionPort from %s", kName);
    m_port.Reset(CreateIoCompletionPort(device.Get(), nullptr, 1, 0));
    if (!m_port) {
        LogError("CreateIoCompletionPort() API failed with error: %d", GetLastError());
        return;
    }
    m_slots = std::make_shared<Slots>();
    {
        std::lock_guard lock(m_handleMutex);
        m_handle = std::move(device);
    }
    if (StartReads()) Serve(stopping, dispatch);

    DrainReads();
    LogInfo("%s: close handle completion port", kName);
    m_port.Reset();
    LogInfo("%s: close handle read from MPM Device", kName);
    {
        std::lock_guard lock(m_handleMutex);
        m_handle.Reset();
    }
    LogInfo("%s: Exiting Thread Handler", kName);
}

void MailboxReadLoop::Cancel() {
    m_bCancelled = true;
    std::lock_guard lock(m_handleMutex);
    if (m_handle) CancelIoEx(m_handle.Get(), nullptr);
}

bool MailboxReadLoop::StartReads() {
    for (size_t slot = 0; slot < kSlots; ++slot) {
        m_slots->buffers[slot].reset(new (std::nothrow) uint8_t[kMailboxBufferSize]());
        if (!m_slots->buffers[slot]) {
            LogInfo("%s: buffer allocation failed", kName);
            return false;
        }
        if (!StartRead(slot)) {
            LogError("ReadFile call-1 - Asynchronous Read command failed with error: %d", m_lastError);
            return false;
        }
    }
    return true;
}

// Returns true when the read pends. A read that completes at once counts as failed, although its completion
// still arrives.
bool MailboxReadLoop::StartRead(size_t slot) {
    const BOOL completed = ReadFile(m_handle.Get(), m_slots->buffers[slot].get(), kMailboxBufferSize, nullptr,
                                    &m_slots->overlapped[slot]);
    m_lastError = GetLastError();
    const bool pends = !completed && m_lastError == ERROR_IO_PENDING;
    if (completed || pends) ++m_pendingReads;
    if (pends && m_bCancelled) CancelIoEx(m_handle.Get(), &m_slots->overlapped[slot]);
    return pends;
}

void MailboxReadLoop::Serve(const std::atomic<uint8_t>& stopping, const Dispatch& dispatch) {
    // When every slot is lost, no completion can arrive, and only the end of the process would end the wait.
    while (!stopping && m_pendingReads > 0) {
        try {
            if (!ServeOne(dispatch)) return;
        } catch (const std::exception& exception) {
            // The message is lost, and its slot is not read into again.
            const char* const what = exception.what();
            LogError("Last error: %d, exception error: %s", m_lastError, what ? what : "Unknown exception");
        }
    }
}

bool MailboxReadLoop::ServeOne(const Dispatch& dispatch) {
    LogInfo("Call GetQueuedCompletionStatus from %s", kName);
    DWORD bytes = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* overlapped = nullptr;
    const BOOL completed = GetQueuedCompletionStatus(m_port.Get(), &bytes, &key, &overlapped, INFINITE);
    if (overlapped) --m_pendingReads;
    if (!completed) {
        m_lastError = GetLastError();
        LogError("GetQueuedCompletionStatus failed with error: %d", m_lastError);
        return false;
    }
    const size_t slot = overlapped - m_slots->overlapped.data();
    if (bytes != 0) dispatch(bytes, m_slots->buffers[slot].get());

    LogInfo("Call ReadFile from %s after ProcessRead", kName);
    if (!StartRead(slot)) {
        LogError("%s: ReadFile call-2 - Asynchronous Read command failed with error: %d", kName, m_lastError);
        return false;
    }
    LogInfo("ReadFile returned successfully to %s after ProcessRead", kName);
    return true;
}

// The buffers are freed only when no read can write into them any more.
void MailboxReadLoop::DrainReads() {
    CancelIoEx(m_handle.Get(), nullptr);
    while (m_pendingReads > 0) {
        DWORD bytes = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* overlapped = nullptr;
        GetQueuedCompletionStatus(m_port.Get(), &bytes, &key, &overlapped, kDrainMilliseconds);
        if (!overlapped) break;
        --m_pendingReads;
    }
    // A driver that completes a read too late, or never, still writes to its buffer, so the buffer is kept
    // for the life of the process.
    static auto* const abandoned = new std::vector<std::shared_ptr<Slots>>;
    if (m_pendingReads > 0) abandoned->push_back(m_slots);
    m_slots.reset();
}
