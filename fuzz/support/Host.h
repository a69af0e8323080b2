// A whole service on a simulated PC, with the simulated firmware behind its mailbox, kept over many inputs:
// Restore brings it back to where it was.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

#include "firmware/Firmware.h"
#include "fuzz/Target.h"
#include "fuzz/support/LogTail.h"
#include "fuzz/support/Pace.h"
#include "service/ZELService.h"

namespace fuzz {

class Host {
  public:
    // The one of this process; built by the first call.
    static Host& Instance();

    ZELService& Service() { return *m_service; }
    mpm::Firmware& Firmware() { return *m_firmware; }
    LogTail& Log() { return m_log; }
    fuzz::Pace& Pace() { return m_pace; }
    uint16_t DashPort() const { return m_dashPort; }
    uint16_t KvmPort() const { return m_kvmPort; }

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
    // Ends the threads of the display. The end of a KVM session waits for them without a limit, as required,
    // and they wait for an agent, which no input has.
    void EndDisplay();

    // The service takes a message and gets an answer from its firmware.
    void RequireAlive();

  private:
    Host();
    void Build();
    void TearDown();
    void OpenLog();
    void CountConnections();
    void AwaitUpdate();
    void EndSessions(unsigned uses);
    void EndReports();
    void EndKvm();
    bool EndThreads();
    bool EndConsole();

    fuzz::Pace m_pace;
    std::string m_folder;
    std::unique_ptr<mpm::Firmware> m_firmware;
    std::unique_ptr<ZELService> m_service;
    LogTail m_log;
    uint16_t m_dashPort = 0, m_kvmPort = 0;
    size_t m_quietThreads = 0;
    unsigned m_inputs = 0;
    unsigned m_uses = kNothing;
};

}  // namespace fuzz
