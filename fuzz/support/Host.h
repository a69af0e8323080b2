// A whole service on a simulated PC, with the simulated firmware behind its mailbox, kept over many inputs:
// Restore brings it back to where it was. The clock stands still but for Pass and for what is called through
// Patiently.
#pragma once

#include <winsock2.h>
#include <windows.h>

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
    // What this input has used, and Restore has to look at: the firmware's faults; anything that leaves
    // threads or sessions; what only a new service gets rid of.
    void NoteFault() { m_faulty = true; }
    void NoteTouched();
    void NoteWorn() {
        NoteTouched();
        m_rebuild = true;
    }

    // The service takes a message and gets an answer from its firmware.
    void RequireAlive();

  private:
    Host();
    void Build();
    void TearDown();
    void Tick();
    void OpenLog();
    void AwaitUpdate();
    void EndSessions();
    bool EndThreads();

    std::string m_folder;
    std::unique_ptr<mpm::Firmware> m_firmware;
    std::unique_ptr<ZELService> m_service;
    LogTail m_log;
    uint16_t m_dashPort = 0, m_kvmPort = 0;
    size_t m_quietThreads = 0;
    unsigned m_inputs = 0;
    bool m_faulty = false, m_touched = false, m_rebuild = false;

    std::atomic<bool> m_calling{false};  // within Patiently
    std::thread m_ticker;
};

}  // namespace fuzz
