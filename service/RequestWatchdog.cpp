#include "service/RequestWatchdog.h"

#include <system_error>

#include "base/Log.h"

RequestWatchdog::RequestWatchdog(MailBoxDriverInterface& mailbox)
    : m_done(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {
    if (!m_done) {
        LogWarn("%s: no event, unanswered requests will hold the control", "RequestWatchdog");
        return;
    }
    try {
        m_thread = std::thread([&mailbox, done = m_done.Get(), handler = std::this_thread::get_id()] {
            while (WaitForSingleObject(done, kPatience) == WAIT_TIMEOUT)
                mailbox.CancelRequestsFor(handler);
        });
    } catch (const std::system_error&) {
        LogWarn("%s: no thread, unanswered requests will hold the control", "RequestWatchdog");
    }
}

RequestWatchdog::~RequestWatchdog() {
    if (!m_thread.joinable()) return;
    SetEvent(m_done.Get());
    m_thread.join();
}
