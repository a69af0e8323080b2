#include "session/ZELConsole.h"

#include <winsock2.h>
#include <windows.h>

#include "base/Log.h"
#include "session/LaunchProcess.h"
#include "state/HelperFolder.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kProgram = "RemoteShell.exe";
constexpr DWORD kMonitorPeriod = 2000, kEndPeriod = 1000;  // milliseconds

// The names of the items begin with a blank of their own, so that two stand before each.
std::string CommandLine(const std::string& program, const std::string& address) {
    const auto item = [](const char* name, const std::string& value) {
        return std::string(" ") + name + " " + value;
    };
    return '"' + program + '"' + item(" -X", std::to_string(GetSystemMetrics(SM_CXSCREEN))) +
           item(" -Y", std::to_string(GetSystemMetrics(SM_CYSCREEN))) + item(" -h", address);
}

}  // namespace

bool ZELConsole::DoInitZELConsole(const std::string& address) {
    m_IPAddress = address;
    LogInfo("IPAddress passed %s", address);
    if (!LaunchZELConsole()) {
        LogError("%s: Launch ZEL Console failed", "DoInitZELConsole");
        return false;
    }
    m_bMonitorEnabled = 1;
    m_bMonitorClosed = 0;
    m_pZELConsoleMonitorThreadObj =
        g_pServiceState->m_detachedThreads.StartOwned([this] { MonitorZELConsoleThread(); });
    if (!m_pZELConsoleMonitorThreadObj) {
        LogError("%s: Monitor ZEL Console thread launch failed", "DoInitZELConsole");
        return false;
    }
    return true;
}

int ZELConsole::LaunchZELConsole() {
    const std::string folder = GetKVMAgentFolder();
    if (folder.empty()) return 0;
    const std::string program = folder + "\\" + kProgram;
    LogDebug("ZEL Console Path = %s", program);
    const std::string command = CommandLine(program, m_IPAddress);
    LogInfo("ZEL Console APP Command:%s", command);
    uint32_t pid = m_consolePID;
    const bool launched = LaunchProcess(kProgram, command, pid);
    m_consolePID = pid;
    LogInfo("%s: ZEL Console PID: %d", "LaunchZELConsole", pid);
    return launched;
}

void ZELConsole::MonitorZELConsoleThread() {
    constexpr const char* kName = "MonitorZELConsoleThread";
    m_bMonitorClosed = 0;
    do {
        if (IsProcessRunning(m_consolePID)) {
            LogInfo("%s: ZEL Console App PID: %d", kName, m_consolePID.load());
            if (!g_pServiceState->SleepUnlessStopping(kMonitorPeriod)) m_bMonitorEnabled = 0;
        } else {
            // Nothing is launched, in spite of the text.
            LogError("%s: ***  ZEL Console Launched again  ***", kName);
            m_bMonitorEnabled = 0;
        }
    } while (m_bMonitorEnabled);
    LogInfo("%s: Exiting Thread Handler", kName);
    m_bMonitorClosed = 1;
}

void ZELConsole::TerminateZELConsoleMonitorThread() {
    constexpr const char* kName = "TerminateZELConsoleMonitorThread";
    if (!m_pZELConsoleMonitorThreadObj) return;
    LogInfo("%s: Waiting for the MonitorZELConsoleThread to exit", kName);
    // A stop ends the monitor too, and the join waits for it.
    while (!m_bMonitorClosed && g_pServiceState->SleepUnlessStopping(kEndPeriod)) {
    }
    LogInfo("%s: m_pZELConsoleMonitorThreadObj exit complete", kName);
    m_pZELConsoleMonitorThreadObj->join();
    m_pZELConsoleMonitorThreadObj.reset();
}

void ZELConsole::DoCleanUp() {
    m_bMonitorEnabled = 0;
    TerminateZELConsoleMonitorThread();
    LogInfo("%s, function exit", "DoCleanUp");
}
