// ZELKVMApp.exe, the helper of a KVM session on the console's desktop: how it is started, asked to leave and
// made to leave. The ways of talking to it are its command line and the terminate file.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

class KVMAgent {
  public:
    // Starts one more agent; displayMode is 1 when the firmware's viewer shows the screen itself. Returns
    // non-zero when that worked as far as the platform can tell. RunServerKVMThread, or the mailbox read
    // thread.
    int LaunchKVMAgent(uint8_t displayMode);

    // Asks every helper to leave, by the terminate file, and doesn't wait. Throws std::ios_base::failure when
    // the file can't be closed; one that can't be created is logged and left.
    void TerminateKVMAgent();

    // Makes every helper leave, and deletes the terminate file and the helper's log. Any thread.
    static void RemoveKVMAgent();

    // Whether a helper runs at this moment. Any thread.
    static bool IsKVMAgentRunning();

    // Whether the process of this id still runs; false, with a line in the log, when it can't be looked at.
    // Any thread.
    static bool IsProcessRunning(uint32_t pid);

  private:
    std::atomic<uint32_t> m_agentPID{0};
};

// Ends every process of just this name, case included. Any thread.
void killProcessByName(const char* name);
