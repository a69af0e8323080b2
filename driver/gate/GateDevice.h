// The driver as the gate sees it: what the mailbox's callers did comes out, answers and messages go in.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <span>
#include <vector>

#include "driver/MpmGateDevice.h"
#include "base/Handles.h"

// Calls may be made from several threads at once. Each returns a Win32 error, 0 for success, and comes back
// with ERROR_OPERATION_ABORTED as soon as one of the events given to Open is set.
class GateDevice {
  public:
    // From here on the mailbox is present. ERROR_FILE_NOT_FOUND while the driver isn't loaded,
    // ERROR_SHARING_VIOLATION while another gate is attached. Borrows the events.
    DWORD Open(HANDLE stop, HANDLE over);

    // Waits for the next notice; `buffer` then holds it and the request's input.
    DWORD Next(std::vector<uint8_t>& buffer);
    // `answer` has room for an MpmCompletion ahead of the bytes of the answer.
    DWORD Complete(uint32_t request, uint32_t error, std::span<uint8_t> answer);
    // `message` has room for an MpmDelivery ahead of the bytes of the message. Waits for a read.
    DWORD Deliver(uint32_t handle, std::span<uint8_t> message);

  private:
    DWORD Call(DWORD code, std::span<uint8_t> input, std::span<uint8_t> output, DWORD* returned);

    UniqueFileHandle m_device;
    HANDLE m_stop = nullptr;
    HANDLE m_over = nullptr;
};
