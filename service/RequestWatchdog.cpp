#include "service/RequestWatchdog.h"

#include <system_error>

#include "service/Log.h"

RequestWatchdog::RequestWatchdog(MailBoxDriverInterface& mailbox)
    : m_done(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
    try {
        m_thread = std::thread([&mailbox, done = m_done.Get()] {
            while (WaitForSingleObject(done, kPatience) == WAIT_TIMEOUT)
                mailbox.CancelRequests();
        });
    } catch (const std::system_error&) {
        LogWarn("%s: no thread, unanswered requests will hold the stop", "RequestWatchdog");
    }
}

RequestWatchdog::~RequestWatchdog() {
    SetEvent(m_done.Get());
    if (m_thread.joinable()) m_thread.join();
}
