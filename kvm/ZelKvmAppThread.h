// The thread that serves the pipe to the KVM agent: one message each way, then it ends.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "base/MessagePipe.h"
#include "kvm/DisplayCaptureThread.h"
#include "kvm/PostedEvents.h"

enum KvmAppEvent : uint32_t {
    AppEvtStartKVMOperation = 1,
    AppEvtExit = 2,
};

class ZelKvmAppThread {
  public:
    // The thread reports the display's configuration to `capture`, which must outlive this object.
    explicit ZelKvmAppThread(DisplayCaptureThread& capture);
    ~ZelKvmAppThread();
    ZelKvmAppThread(const ZelKvmAppThread&) = delete;
    ZelKvmAppThread& operator=(const ZelKvmAppThread&) = delete;

    // Starts the thread unless its object exists. Throws std::system_error when it cannot be started.
    void Start();
    // Ends the thread. Waits for the agent without a limit, unless the service stops. Any other thread.
    void Stop();
    // The service stops: the thread waits for the agent no longer. Any thread.
    void SignalStop();
    // The same as Stop, and silent when there is no thread. At the end of the process.
    void StopIfStarted();

    // Any thread; never blocks.
    void SetKvmAppEvent(KvmAppEvent event);

    // The address of the thread object, for the log.
    const void* Object();

  private:
    void Run();
    void TalkToAgent();
    bool AwaitAgent();
    void ReceiveDisplayConfig();
    void SendStartMessage();

    DisplayCaptureThread& m_capture;
    PostedEvents m_kvmAppEvent;
    MessagePipe m_pipe;
    std::atomic<uint8_t> m_bIsKVMAppThreadClosed{0};
    std::atomic<bool> m_isStopping{false};
    std::mutex m_stopMutex;    // held by a stop
    std::mutex m_threadMutex;  // guards the owning pointer
    std::unique_ptr<std::thread> m_pZelKvmAppThreadObj;
};
