// The named pipe between the service and the program that asks the user for consent. One pipe serves one
// question.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>

#include "base/Handles.h"

// Only one thread uses the pipe, except for Cancel and IsOpen.
class ConsentPipe {
  public:
    // Creates the pipe. Returns false and logs an error when the pipe cannot be created. Returns false
    // without logging after Cancel.
    bool Create();
    // Blocks until a program has connected. Returns false and logs an error when that fails. Returns false
    // without logging after Cancel.
    bool AwaitClient();
    // Writes the text and a terminating NUL. Returns false and logs an error when that fails.
    bool Write(const std::string& text);
    // Blocks until the client's next message arrives. Returns its text up to the first NUL, line feed or
    // carriage return. Returns an empty text and logs a line when nothing could be read.
    std::string Read();
    void Close();

    // Unblocks the current blocking call and prevents later ones. Any thread.
    void Cancel();
    // Returns true while a program may connect to the pipe or is connected to it. Once it returns false after
    // Cancel, the pipe stays closed. Any thread.
    bool IsOpen();

  private:
    std::mutex m_mutex;  // keeps the handle valid while another thread cancels
    UniqueFileHandle m_pipe;
    std::atomic<bool> m_cancelled{false};
};
