// A whole service on a simulated PC, with the simulated firmware behind its mailbox, kept over many inputs:
// Restore brings it back to where it was. The clock stands still but for Pass and for what is called through
// Patiently.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "firmware/Firmware.h"
#include "fuzz/Target.h"
#include "fuzz/support/LogTail.h"
#include "service/ZELService.h"
#include "winhost/core/Clock.h"

namespace fuzz {

class Host {
  public:
    // The one of this process; built by the first call.
    static Host& Instance();

    ZELService& Service() { return *m_service; }
    mpm::Firmware& Firmware() { return *m_firmware; }
    LogTail& Log() { return m_log; }
    uint16_t DashPort() const { return m_dashPort; }
    uint16_t KvmPort() const { return m_kvmPort; }

    // Lets the call have its way: while it sleeps or waits, time passes quickly.
    void Patiently(const std::function<void()>& call);
    // Moves the clock, and gives the threads that wake by it a moment.
    void Pass(std::chrono::milliseconds time);
    // Gives the other threads a moment in real time, while the clock moves by at most a second.
    void Settle();
    // Nothing of this input is left: no session, no question, no thread, no fault. Builds everything anew
    // where it must.
    void Restore();
    // What this input has used, which is what Restore has to look at.
    enum Use : unsigned {
        kNothing = 0,
        kFaults = 1,     // of the firmware
        kDash = 2,       // what may keep a session, or wait for one's end
        kKvm = 4,        // the same of KVM
        kQuestions = 8,  // to the person
        kReports = 16,   // to the firmware, and the scans that go on after one
        kThreads = 32,   // any other
        kConsole = 64,   // connections of one
    };
    void Note(unsigned uses);

    // The service takes a message and gets an answer from its firmware.
    void RequireAlive();

  private:
    Host();
    void Build();
    void TearDown();
    void Tick();
    void Idle();
    // Moves the clock to where the next thread wakes, or by `most`.
    void WakeNext(winhost::Clock::Duration most);
    // Lets the other threads do what they have to do: all of it on one core, else for a moment; the first
    // ones as short as can be.
    void GiveWay(int moments);
    void OpenLog();
    void CountConnections();
    void AwaitUpdate();
    void EndSessions(unsigned uses);
    void EndReports();
    void EndKvm();
    bool EndThreads();
    bool EndConsole();

    std::string m_folder;
    std::unique_ptr<mpm::Firmware> m_firmware;
    std::unique_ptr<ZELService> m_service;
    LogTail m_log;
    uint16_t m_dashPort = 0, m_kvmPort = 0;
    size_t m_quietThreads = 0;
    unsigned m_inputs = 0;
    unsigned m_uses = kNothing;

    const bool m_onOneCore;
    std::atomic<bool> m_calling{false};  // within Patiently
    std::atomic<bool> m_polling{false};  // there may be a session, whose receive thread polls
    sem_t m_wish, m_idle;                // to be told when the core has nothing to do; it has nothing
    std::thread m_ticker, m_idler;
};

}  // namespace fuzz
