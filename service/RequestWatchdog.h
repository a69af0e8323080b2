// Prevents a service control from blocking in a request that the firmware does not answer: cancels all
// pending requests each time kPatience has passed.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <thread>

#include "base/Handles.h"
#include "mailbox/MailBoxDriverInterface.h"

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
