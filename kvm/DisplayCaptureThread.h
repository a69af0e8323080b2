// The thread that captures the screen and delivers it to the firmware: one chunk of an encoded frame for each
// request. Nothing is captured between requests.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "KVMDisplayMgrLib/src/DisplayMgr.h"
#include "base/Handles.h"
#include "base/TerminableCalls.h"
#include "kvm/PostedEvents.h"
#include "mailbox/DisplayRecords.h"

enum DisplayEvent : uint32_t {
    DispEvtCaptureEncodeStart = 1,
    DispEvtCaptureEncodeExit = 2,
    DispEvtDisplayEnumConfig = 3,
};

// What the agent reports of the screen.
struct DisplayConfig {
    uint32_t m_width = 0;  // pixels
    uint32_t m_height = 0;
    uint32_t m_vidPnSourceId = 0;
};

class DisplayCaptureThread {
  public:
    // The session goes on while `enabled` is not 0. Both arguments must outlive this object.
    DisplayCaptureThread(DisplayMgr& mgr, const std::atomic<uint8_t>& enabled);
    ~DisplayCaptureThread();
    DisplayCaptureThread(const DisplayCaptureThread&) = delete;
    DisplayCaptureThread& operator=(const DisplayCaptureThread&) = delete;

    // Starts the thread unless its object exists. The object of a thread that was forced to end does not
    // count. Throws std::system_error when the thread cannot be started.
    void Start();
    // Ends the thread, by force after 25 seconds. Any other thread.
    void Stop();
    // The service stops: the attempts to bring the pipeline up end. Any thread.
    void SignalStop();
    // The same as Stop, and silent when there is no thread. At the end of the process.
    void StopIfStarted();

    // Any thread; never blocks.
    void SetDisplayMgrEvent(DisplayEvent event);
    // Stores what the thread uses from the next DispEvtDisplayEnumConfig on. Called before that is posted.
    void SetConfig(const DisplayConfig& config);

    // The address of the thread object, for the log.
    const void* Object();

  private:
    // DisplayCaptureThread.cpp
    void Run();
    void Serve();
    bool HandleNextEvents();
    bool BringUp();
    bool InitWithRetries();
    bool AllocateSendBuffer();
    bool AnswerRequest();
    void CaptureFrame();
    uint32_t SendChunk(uint32_t& chunkSize);
    void TerminateDisplayMgr();

    // DisplayCaptureEnd.cpp
    enum class End {
        Returned,
        Terminated,
        Unknown,  // the thread still runs
    };
    void OpenOwnHandle();
    void DropEndedThread();
    End AwaitEnd(std::thread::id thread);
    End ForceEnd(std::thread::id thread);
    bool Terminate();
    bool HasTerminated();
    void Join(End end);

    DisplayMgr& m_mgr;
    const std::atomic<uint8_t>& m_enabled;

    PostedEvents m_displayEvent;
    std::atomic<uint8_t> m_bIsKVMDisplayMgrThreadClosed{0};
    UniqueHandle m_stopEvent;  // manual-reset; set when the service stops

    std::mutex m_stopMutex;    // held by a stop
    std::mutex m_threadMutex;  // guards the fields up to the mark
    std::unique_ptr<std::thread> m_pKVMDisplayMgrThreadObj;
    UniqueHandle m_threadHandle;   // opened by the thread itself
    bool m_isLeftBehind = false;   // a stop has returned without a join
    bool m_isTerminating = false;  // TerminateThread has succeeded, and the end has not been seen yet
    DisplayConfig m_config;
    // --- the mark ---

    TerminableCalls m_mgrCalls;
    std::mutex m_sendBufferLock;
    std::unique_ptr<uint8_t[]> m_pSendBuffer;  // an EncodedFrameChunk and its data; null before the bring-up

    // Only the thread accesses these, and TerminateDisplayMgr after its end.
    EncodedFrameBuffer m_encodedFrame;  // outlives a session, for the next one
    int32_t m_requestCount = 0;
    uint32_t m_encodedFrameSize = 0;
    uint32_t m_chunksLeft = 0;
    uint32_t m_offset = 0;
    bool m_isRequestWaiting = false;  // a request that came before the bring-up
};
