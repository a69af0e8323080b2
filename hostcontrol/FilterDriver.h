// The network filter driver of the Wi-Fi adapters. It runs only while the system has Modern Standby, the
// connection is wireless and the platform is provisioned, and it does not outlive the service.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>

// Every method may block: five seconds for a driver that stops slowly, and without a limit until PowerShell
// ends or another thread's change is complete. Any thread.
class FilterDriver {
  public:
    // Reads whether the system has Modern Standby. Without it, turns the driver off.
    void CheckFilterDriverSupport();

    // Turns the driver on or off when the picture of the network requires it. A failure is tried again with
    // the next call. Does nothing once the service stops.
    void UpdateFilterDriver(bool wireless, bool provisioned);

    // Returns true when the driver is as requested, or a failed binding is all that is missing. A driver that
    // the service has not turned on counts as off.
    bool SetFilterDriver(bool enable);

    std::atomic<uint8_t> m_supportsS0{0};           // 0 until tested
    std::atomic<uint8_t> m_filterDriverEnabled{0};  // turned on by the service

  private:
    // The caller of these holds m_mutex.
    bool Set(bool enable);
    bool Enable(SC_HANDLE manager);
    bool Disable(SC_HANDLE manager);

    std::mutex m_mutex;  // held during a change: a late network change must not overtake the stop's
};
