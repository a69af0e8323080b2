#include "service/Presence.h"

// The turn of one thread to report. Its report is sent without the lock.
class Presence::Turn {
  public:
    // The caller holds the lock.
    explicit Turn(Presence& presence) : m_presence(presence) {
        m_presence.m_reporter = std::this_thread::get_id();
    }
    ~Turn() {
        std::lock_guard lock(m_presence.m_mutex);
        m_presence.m_reporter = {};
        m_presence.m_turnEnded.notify_all();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    Presence& m_presence;
};

bool Presence::BeginUpdate(Epoch& epoch) {
    std::lock_guard lock(m_mutex);
    epoch = m_epoch;
    return m_bUpdateInProgress.exchange(1) == 0;
}

void Presence::EndUpdate(Epoch epoch) {
    std::lock_guard lock(m_mutex);
    if (IsCurrent(epoch)) m_bUpdateInProgress.exchange(0);
}

bool Presence::ReportUp(Epoch epoch, const std::function<void()>& report) {
    std::unique_lock lock(m_mutex);
    while (IsReportable(epoch) && (IsReporting() || m_farewells > 0))
        AwaitEndOfTurn(lock);
    if (!IsReportable(epoch)) return false;
    m_mailbox.m_bServiceUp.exchange(1);
    const Turn turn(*this);
    lock.unlock();
    report();
    return true;
}

void Presence::Farewell(bool last, const std::function<void()>& report) {
    std::unique_lock lock(m_mutex);
    // From here on, nothing opens the gate again before this report has been sent.
    m_mailbox.m_bServiceUp.exchange(0);
    ++m_epoch;
    m_bUpdateInProgress.exchange(0);
    if (last) m_bGone = true;
    ++m_farewells;
    while (IsReporting())
        AwaitEndOfTurn(lock);
    --m_farewells;
    const Turn turn(*this);
    lock.unlock();
    report();
}

// The firmware may leave the report of the other thread without an answer. A control that waits here then
// ends that report.
void Presence::AwaitEndOfTurn(std::unique_lock<std::mutex>& lock) {
    const auto waiting = m_mailbox.WaitingFor(m_reporter);
    m_turnEnded.wait(lock);
}
