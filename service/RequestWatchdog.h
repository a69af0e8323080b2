// Prevents a service control from blocking in a request that the firmware does not answer. Each time
// kPatience has passed, it cancels the request in which the control's thread blocks, or that of the thread
// which the control waits for. The requests of all other threads go on: firmware that is merely slow still
// answers them.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <thread>

#include "base/Handles.h"
#include "mailbox/MailBoxDriverInterface.h"

class RequestWatchdog {
  public:
    static constexpr DWORD kPatience = 2000;  // milliseconds

    // The calling thread is the one that handles the control.
    explicit RequestWatchdog(MailBoxDriverInterface& mailbox);
    ~RequestWatchdog();
    RequestWatchdog(const RequestWatchdog&) = delete;
    RequestWatchdog& operator=(const RequestWatchdog&) = delete;

  private:
    UniqueHandle m_done;
    std::thread m_thread;
};
