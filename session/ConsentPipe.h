// The pipe between the service and the program that puts the consent question. It is there for one question.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>

#include "base/Handles.h"

// Belongs to one thread, but for Cancel.
class ConsentPipe {
  public:
    // False, with a line in the log, when the pipe can't be made, or without one when Cancel has come.
    bool Create();
    // Blocks until a program has connected. False, with a line in the log, when that can't be, or without one
    // when Cancel has come.
    bool AwaitClient();
    // Writes the text and the NUL behind it. False, with a line in the log, when that fails.
    bool Write(const std::string& text);
    // Blocks for the client's next message. Its text up to the first NUL, line feed or carriage return;
    // empty, with a line in the log, when nothing could be read.
    std::string Read();
    void Close();

    // Any thread: ends what blocks, now and from here on.
    void Cancel();
    // Any thread: whether a program may find the pipe, or has found it. Not any more after a Cancel and a
    // false.
    bool IsOpen();

  private:
    std::mutex m_mutex;  // keeps the handle while another thread cancels
    UniqueFileHandle m_pipe;
    std::atomic<bool> m_cancelled{false};
};
