// What the firmware can make the host do with its power. A command of a console only latches its action: the
// action follows the next answer that goes to the console, so that the console hears of its success.
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

// On the mailbox read thread.
class HostControl {
  public:
    // Latches the low byte of the option; one that was latched before and has not run is forgotten.
    void SetPowerOption(uint32_t option);

    // Carries out what is latched, once, whether it succeeds or not.
    void RunPendingPowerOption();

    // At once, or for sleep and hibernate 2 seconds later on a thread of its own. True when a shutdown or a
    // reboot is on its way. Always false for sleep and hibernate, and for an option that there is not.
    bool DoSytemShutdown(uint32_t option);

  private:
    std::atomic<uint8_t> m_powerOption{kPowerNone};
    // Of the last such thread. They are never closed nor waited for: the thread may outlive this object.
    HANDLE m_hibernateThread = nullptr;
    HANDLE m_sleepThread = nullptr;
};
