// The display mode of a KVM session: the firmware asks for the screen, and its viewer shows it.
#pragma once

#include <atomic>
#include <cstdint>

#include "kvm/DisplayCaptureThread.h"
#include "kvm/KVMAgent.h"
#include "kvm/ZelKvmAppThread.h"

class DisplayManager {
  public:
    // Both arguments must outlive this object.
    DisplayManager(KVMAgent& agent, DisplayMgr& mgr);

    // Starts the two threads and one more agent. Does nothing and returns true when the session is in agent
    // mode. Returns false when no agent could be started; the threads stay. Throws std::system_error when a
    // thread cannot be started. The mailbox read thread.
    bool DoInitLUXKVM();
    // True when the firmware's viewer shows the screen itself. Any thread.
    bool IsDisplayMode() const;

    // Any thread; neither blocks.
    void SetDisplayMgrEvent(DisplayEvent event) { m_capture.SetDisplayMgrEvent(event); }
    void SetKvmAppEvent(KvmAppEvent event) { m_app.SetKvmAppEvent(event); }

    // The end of a session; any thread except the two.
    void StopDisplayCaptureThread() { m_capture.Stop(); }
    void StopZelKvmAppThread() { m_app.Stop(); }

    // The service stops: from now on every stop of a thread takes a bounded time. Any thread.
    void SignalStop();
    // Ends the threads at the end of the process. Any thread except the two.
    void EndThreads();

    // Set by the firmware's request for the display's configuration, cleared at the end of the session.
    std::atomic<uint8_t> m_bLuxKvmEnabled{0};

  private:
    KVMAgent& m_agent;
    DisplayCaptureThread m_capture;
    ZelKvmAppThread m_app;
};
