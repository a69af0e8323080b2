// The service's end of a named pipe that exchanges messages with one program of any user.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <mutex>

#include "base/Handles.h"

// Only one thread uses the pipe, except for Cancel and IsOpen. A call that fails leaves its error in
// GetLastError.
class MessagePipe {
  public:
    // Creates the pipe; programs can connect from now on.
    bool Create(const char* name);
    // Blocks until a program has connected.
    bool Connect();
    // Blocks until a message arrives. A message of more than `size` bytes is cut: the call then fails with
    // ERROR_MORE_DATA, and `bytes` is `size`.
    bool Read(void* buffer, DWORD size, DWORD& bytes);
    // Blocks until the program has read the message.
    bool Write(const void* data, DWORD size, DWORD& bytes);
    // Disconnects the program. What it has not read is lost.
    void Close();

    // Ends the current blocking call with ERROR_OPERATION_ABORTED and lets later ones fail with it. A call
    // that is about to block may miss it, so it is repeated while IsOpen. Any thread.
    void Cancel();
    bool IsCancelled() const { return m_cancelled; }
    // Returns true while a program may connect to the pipe or is connected to it. Once it returns false after
    // Cancel, the pipe stays closed. Any thread.
    bool IsOpen();

  private:
    bool MayBlock() const;

    std::mutex m_mutex;  // keeps the handle valid while another thread cancels
    UniqueFileHandle m_pipe;
    std::atomic<bool> m_cancelled{false};
};
