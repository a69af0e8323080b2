// Limits how long the server of a pipe blocks for a program that it has started and that should connect.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <mutex>
#include <thread>

#include "base/Handles.h"

// While it exists, a thread cancels the blocking call of the pipe when the program ends without a connection,
// when the service stops, and when kPatience is over. The call then fails with ERROR_OPERATION_ABORTED.
class ReaderWatch {
  public:
    static constexpr DWORD kPatience = 30000;  // milliseconds, for the connection and the record together
    static constexpr DWORD kPoll = 100;

    // Borrows both handles, which must stay open.
    ReaderWatch(HANDLE pipe, HANDLE program);
    ~ReaderWatch();
    ReaderWatch(const ReaderWatch&) = delete;
    ReaderWatch& operator=(const ReaderWatch&) = delete;

    // False when there is no thread: a blocking call may then last for ever. GetLastError has the reason.
    explicit operator bool() const { return m_thread != nullptr; }
    // From now on the end of the program cancels nothing: what it has written can still be read.
    void SetConnected();

  private:
    void Run();
    void CancelIfOver(DWORD waited);

    const HANDLE m_pipe, m_program;
    const UniqueHandle m_done;
    std::mutex m_mutex;  // held during a cancellation, which must not hit the call after the connection
    bool m_connected = false;
    std::unique_ptr<std::thread> m_thread;
};
