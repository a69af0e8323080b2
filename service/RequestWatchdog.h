// Keeps a stop from hanging in a request that the firmware does not answer: while it lives, requests that
// pend for longer than its patience are cancelled.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <thread>

#include "mailbox/MailBoxDriverInterface.h"
#include "service/Handles.h"

class RequestWatchdog {
  public:
    static constexpr DWORD kPatience = 2000;  // milliseconds

    explicit RequestWatchdog(MailBoxDriverInterface& mailbox);
    ~RequestWatchdog();
    RequestWatchdog(const RequestWatchdog&) = delete;
    RequestWatchdog& operator=(const RequestWatchdog&) = delete;

  private:
    UniqueHandle m_done;
    std::thread m_thread;
};
