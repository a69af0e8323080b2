// The one way in for the firmware: ten reads kept pending on a device handle of their own, and the dispatch
// of what they bring.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "service/Handles.h"

class ZELService;

class MailboxReadLoop {
  public:
    // Body of the read thread: returns when a read fails or the service stops, with the handle closed. Runs
    // once.
    void Run(ZELService* service);

    // Any thread. Fails the pending reads, which ends Run, and those that it may yet start.
    void Cancel();

  private:
    class Reads;
    bool Dispatch(ZELService* service, Reads& reads, HANDLE port, bool& lost);
    void Serve(ZELService* service, Reads& reads, HANDLE port);
    void Close(Reads& reads, UniqueHandle& port);

    // Guards the handle against being closed while Cancel uses it.
    std::mutex m_handleMutex;
    UniqueFileHandle m_handle;
    std::atomic<bool> m_bCancelled{false};
};

// Thread body of m_pMBDriverReadThreadObj.
void ReadFromMailBoxDriverThread(ZELService* service);

// Read thread. Dispatches one message of bytesRead bytes: payload, command number, one more byte. Blocks the
// loop for as long as the command's handler takes; the buffer is the handler's until it returns.
void ProcessRead(ZELService* service, uint32_t bytesRead, const uint8_t* buffer);
