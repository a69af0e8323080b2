// The one way in for the firmware: ten reads kept pending on a device handle of their own, and the dispatch
// of what they bring.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "base/Handles.h"

class ZELService;

class MailboxReadLoop {
  public:
    // Body of the read thread: returns when a read fails or the service stops, with its handle closed. Runs
    // once.
    void Run(ZELService* service);

    // Any thread. Fails the reads that are pending and those that Run may yet start; Run then returns.
    void Cancel();

  private:
    struct Slots;

    bool StartReads();
    void Serve(ZELService* service);
    bool ServeOne(ZELService* service);
    bool StartRead(size_t slot);
    void DrainReads();

    // Guards the handle against being closed while Cancel uses it.
    std::mutex m_handleMutex;
    UniqueFileHandle m_handle;
    std::atomic<bool> m_bCancelled{false};

    UniqueHandle m_port;
    std::shared_ptr<Slots> m_slots;
    size_t m_pendingReads = 0;
};

// Thread body of m_pMBDriverReadThreadObj.
void ReadFromMailBoxDriverThread(ZELService* service);

// Read thread. Dispatches one message of bytesRead bytes: payload, command number, one byte that is not
// looked at. Blocks the loop for as long as the command's handler takes; the buffer is the handler's until it
// returns.
void ProcessRead(ZELService* service, uint32_t bytesRead, const uint8_t* buffer);
