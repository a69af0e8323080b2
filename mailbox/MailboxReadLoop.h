// Receives the firmware's messages: ten reads are kept pending on a device handle of their own, and each
// message goes to a dispatch function.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "base/Handles.h"
#include "mailbox/MailBoxDriverInterface.h"

class MailboxReadLoop {
  public:
    // Handles one message, which stays in the buffer until the function returns.
    using Dispatch = std::function<void(uint32_t bytesRead, const uint8_t* buffer)>;

    // Body of the read thread. Returns when a read fails or `stopping` is set, with its handle closed. Runs
    // once. A std::exception from `dispatch` is logged and costs the message and one of the reads.
    void Run(MailBoxDriverInterface& mailbox, const std::atomic<uint8_t>& stopping, const Dispatch& dispatch);

    // Any thread. Cancels the pending reads and those that Run may yet start. Run then returns.
    void Cancel();

  private:
    struct Slots;

    bool StartReads();
    void Serve(const std::atomic<uint8_t>& stopping, const Dispatch& dispatch);
    bool ServeOne(const Dispatch& dispatch);
    bool StartRead(size_t slot);
    void DrainReads();

    // Prevents the handle from being closed while Cancel uses it.
    std::mutex m_handleMutex;
    UniqueFileHandle m_handle;
    std::atomic<bool> m_bCancelled{false};

    UniqueHandle m_port;
    std::shared_ptr<Slots> m_slots;
    size_t m_pendingReads = 0;
    DWORD m_lastError = 0;  // of the loop's own calls; a handler that throws may have left another one
};
