// The presence of the service as the firmware sees it: up or down. Reports of both kinds come from several
// threads, and a report of "up" must neither reach the firmware after a farewell nor open the gate after it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "mailbox/MailBoxDriverInterface.h"

class Presence {
  public:
    // Each farewell begins a new epoch. What a thread began in an earlier one is no longer reported as up.
    using Epoch = uint64_t;

    // Both arguments must outlive this object. The flag is 1 while an update of the present epoch runs.
    Presence(MailBoxDriverInterface& mailbox, std::atomic<uint8_t>& updateInProgress)
        : m_mailbox(mailbox), m_bUpdateInProgress(updateInProgress) {}

    Epoch Current() const { return m_epoch; }
    bool IsCurrent(Epoch epoch) const { return m_epoch == epoch; }

    // Claims the flag for an update of the present epoch. Returns false when an update already runs. Any
    // thread.
    bool BeginUpdate(Epoch& epoch);
    // Clears the flag, unless it belongs to a later epoch.
    void EndUpdate(Epoch epoch);

    // Opens the gate and runs `report`, which reports the service as up. Does nothing and returns false when
    // a farewell has begun since `epoch`. Waits for a report that another thread is sending.
    bool ReportUp(Epoch epoch, const std::function<void()>& report);
    // Closes the gate, begins a new epoch, ends the claim of a running update and runs `report`, which
    // reports the service as down. Precedes every report of "up" that has not begun, and waits for the one
    // that is being sent. After the `last` farewell, no report of "up" is sent.
    void Farewell(bool last, const std::function<void()>& report);

  private:
    class Turn;

    // The caller holds the lock.
    bool IsReportable(Epoch epoch) const { return !m_bGone && IsCurrent(epoch); }
    bool IsReporting() const { return m_reporter != std::thread::id(); }
    void AwaitEndOfTurn(std::unique_lock<std::mutex>& lock);

    MailBoxDriverInterface& m_mailbox;
    std::atomic<uint8_t>& m_bUpdateInProgress;
    std::mutex m_mutex;  // not held during a report, which may take as long as the firmware
    std::condition_variable m_turnEnded;
    std::thread::id m_reporter;  // the thread whose report is being sent; none
    int m_farewells = 0;         // that wait or are being sent
    bool m_bGone = false;
    std::atomic<Epoch> m_epoch{0};
};
