// Carries out the firmware's power commands on the host. A command from a console only stores its action. The
// action runs after the next answer to the console, so that the console receives the success first.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>

enum PowerOption : uint8_t {
    kPowerNone = 0,
    kPowerShutdown = 1,
    kPowerReboot = 2,
    kPowerHibernate = 3,
    kPowerSleep = 4,
    kPowerShutdownG2S5 = 5,
};

// All methods are called on the mailbox read thread.
class HostControl {
  public:
    // Stores the low byte of the option. It replaces an earlier option that has not run.
    void SetPowerOption(uint32_t option);

    // Runs the stored option once, whether it succeeds or not.
    void RunPendingPowerOption();

    // Runs the option at once; sleep and hibernate run 2 seconds later on a thread of their own. Returns true
    // when a shutdown or a reboot has been initiated. Returns false for sleep, hibernate and unknown options.
    bool DoSytemShutdown(uint32_t option);

  private:
    std::atomic<uint8_t> m_powerOption{kPowerNone};
    // Handles of the last such threads. They are never closed or waited for, because the thread may outlive
    // this object.
    HANDLE m_hibernateThread = nullptr;
    HANDLE m_sleepThread = nullptr;
};
