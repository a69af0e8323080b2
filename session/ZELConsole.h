// Starts the program of a remote console on the desktop and watches whether it stays alive. Nothing calls
// this yet.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

// The caller of DoInitZELConsole and DoCleanUp is one thread. It calls DoCleanUp before the next
// DoInitZELConsole and before the end of this object.
class ZELConsole {
  public:
    // Starts the program with the address of the remote peer, and the monitor. Returns false and logs an
    // error when the program or the monitor cannot be started. Throws std::system_error when a thread cannot
    // be created.
    bool DoInitZELConsole(const std::string& address);
    // Returns non-zero when the program was started as far as LaunchProcess can see.
    int LaunchZELConsole();
    // The thread: looks every 2 seconds, and ends when the program has ended, m_bMonitorEnabled is 0 or the
    // service stops.
    void MonitorZELConsoleThread();
    // Waits until the monitor has ended.
    void TerminateZELConsoleMonitorThread();
    // Ends the monitor, which takes up to 2 seconds. The program goes on.
    void DoCleanUp();

    std::atomic<uint32_t> m_consolePID{0};
    std::atomic<uint8_t> m_bMonitorEnabled{0};  // the monitor is to go on
    std::atomic<uint8_t> m_bMonitorClosed{0};   // the monitor has ended
    std::string m_IPAddress;
    std::unique_ptr<std::thread> m_pZELConsoleMonitorThreadObj;
};
