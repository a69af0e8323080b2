// Starts, detects and ends ZELKVMApp.exe, the helper program of a KVM session on the console's desktop. The
// service passes it parameters on the command line and asks it to exit with the terminate file; there is no
// other channel.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

class KVMAgent {
  public:
    // Starts one more agent. displayMode is 1 when the firmware's viewer shows the screen itself. Returns
    // non-zero when the start succeeded as far as the platform can report it. Called on the listener thread
    // (RunServerKVMThread) or the mailbox read thread.
    int LaunchKVMAgent(uint8_t displayMode);

    // Asks every helper to exit by writing the terminate file, and does not wait. Throws
    // std::ios_base::failure when the file cannot be closed. A file that cannot be created is logged and
    // ignored.
    void TerminateKVMAgent();

    // Kills every helper, then deletes the terminate file and the helper's log. Any thread.
    static void RemoveKVMAgent();

    // Returns true when a helper runs at this moment. Any thread.
    static bool IsKVMAgentRunning();

    // Returns true when the process with this id still runs. Returns false and logs an error when the process
    // cannot be opened. Any thread.
    static bool IsProcessRunning(uint32_t pid);

  private:
    std::atomic<uint32_t> m_agentPID{0};
};

// Terminates every process whose name equals `name`; the comparison is case-sensitive. Any thread.
void killProcessByName(const char* name);
