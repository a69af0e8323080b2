// What the thread does; DisplayCaptureEnd.cpp has its start and its end.
#include "kvm/DisplayCaptureThread.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>

#include "base/Log.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kName = "DisplayCaptureThread";
constexpr int kInitAttempts = 20;
constexpr DWORD kInitPause = 1000;  // milliseconds
constexpr size_t kSendBufferSize = sizeof(EncodedFrameChunk) + EncodedFrameChunk::kMaxData;

// The stream that every screen gets.
constexpr uint32_t kCodecAv1 = 0;
constexpr uint32_t kUsage = 0;
constexpr uint32_t kBitsPerSecond = 5'000'000;
constexpr uint32_t kFramesPerSecond = 30;

// A failed capture has size 0, for which this is 8192 on purpose: that many requests get an empty chunk
// before the next capture.
uint32_t ChunksOf(uint32_t frameSize) {
    static_assert(EncodedFrameChunk::kMaxData == size_t{1} << 19);
    return ((frameSize - 1) >> 19) + 1;
}

}  // namespace

void DisplayCaptureThread::Run() {
    m_requestCount = 0;
    m_chunksLeft = 0;
    m_offset = 0;
    m_isRequestWaiting = false;
    if (m_displayEvent.Create("m_DisplayMgrEvent")) {
        Serve();
    } else {
        LogInfo("LUX_KVM: CreateEvent failed Error code: %lu", GetLastError());
    }
    TerminateDisplayMgr();
}

void DisplayCaptureThread::Serve() {
    try {
        while (HandleNextEvents()) {
        }
    } catch (const std::exception& exception) {
        LogError("%s: ended by an exception: %s", kName, exception.what());
    }
}

// Returns false when the thread has to end.
bool DisplayCaptureThread::HandleNextEvents() {
    if (!m_displayEvent.Await()) {
        LogError("Error in Wait for Single Object Error code: %lu", GetLastError());
        return false;
    }
    const PostedEvents::Taken posted = m_displayEvent.Take();
    if (posted.Has(DispEvtCaptureEncodeExit)) {
        LogError("LUX_KVM: Recevied DispEvtCaptureEncodeExit");
        return false;
    }
    if (posted.Has(DispEvtCaptureEncodeStart)) m_isRequestWaiting = true;
    if (posted.Has(DispEvtDisplayEnumConfig) && (!BringUp() || !m_enabled)) return false;
    if (m_isRequestWaiting && !AnswerRequest()) return false;
    return m_enabled;
}

bool DisplayCaptureThread::BringUp() {
    if (!InitWithRetries()) return false;
    LogInfo("LUX_KVM: mgr.Init Done");
    return AllocateSendBuffer();
}

bool DisplayCaptureThread::InitWithRetries() {
    DisplayConfig config;
    {
        std::lock_guard lock(m_threadMutex);
        config = m_config;
    }
    LogInfo("LUX_KVM: mgr.Init started vidPnSourceId %d width %d height %d", config.m_vidPnSourceId,
            config.m_width, config.m_height);
    const DisplayMgrInitArgs args{config.m_vidPnSourceId, config.m_width,  config.m_height, kCodecAv1, kUsage,
                                  kBitsPerSecond,         kFramesPerSecond};
    const auto init = [&] {
        const TerminableCalls::Call call(m_mgrCalls);
        return m_mgr.Init(args);
    };
    for (int attempt = 1; attempt <= kInitAttempts; ++attempt) {
        if (attempt > 1) {
            LogInfo("LUX_KVM: Retrying mgr.Init, attempt %d of %d", attempt, kInitAttempts);
            const DWORD result = WaitForSingleObject(m_stopEvent.Get(), kInitPause);
            if (result == WAIT_OBJECT_0) return false;
            if (result == WAIT_FAILED) Sleep(kInitPause);
        }
        if (init()) {
            LogInfo("LUX_KVM: mgr.Init succeeded on attempt %d", attempt);
            return true;
        }
        LogWarn("LUX_KVM: mgr.Init failed on attempt %d of %d", attempt, kInitAttempts);
    }
    LogError("LUX_KVM: mgr.Init failed after all retry attempts");
    return false;
}

bool DisplayCaptureThread::AllocateSendBuffer() {
    std::lock_guard lock(m_sendBufferLock);
    m_pSendBuffer.reset(new (std::nothrow) uint8_t[kSendBufferSize]());
    if (!m_pSendBuffer) {
        LogInfo("LUX_KVM: Allocation failed for pSendBuffer");
        return false;
    }
    LogInfo("LUX_KVM: MAX_CHUNK_BUFFER_SZ_512KB allocation done %p", m_pSendBuffer.get());
    return true;
}

// One request is one chunk. Returns false when the firmware has not taken it.
bool DisplayCaptureThread::AnswerRequest() {
    // The firmware may ask as soon as it knows the size of the screen, which is before the bring-up.
    if (!m_pSendBuffer) {
        LogInfo("LUX_KVM: request before the display configuration, it waits");
        return true;
    }
    m_isRequestWaiting = false;
    ++m_requestCount;
    if (m_chunksLeft == 0) CaptureFrame();
    LogInfo("LUX_KVM: DispEvtCaptureEncodeStart RequiredChunk %d m_requestCount %d offset %d", m_chunksLeft,
            m_requestCount, m_offset);
    uint32_t chunkSize = 0;
    if (const uint32_t error = SendChunk(chunkSize)) {
        LogError("LUX_KVM: %s: SendIOCtlToDriver failed, dwError: %d", kName, error);
        return false;
    }
    --m_chunksLeft;
    m_offset += chunkSize;
    return true;
}

void DisplayCaptureThread::CaptureFrame() {
    LogDebug("LUX_KVM: Submitting for encode  %d ", m_requestCount);
    size_t size = 0;
    bool isCaptured = false;
    {
        const TerminableCalls::Call call(m_mgrCalls);
        isCaptured = m_mgr.CaptureEncode(&m_encodedFrame, &size);
    }
    // No chunk may reach beyond the frame's bytes.
    if (!isCaptured || size > m_encodedFrame.capacity) size = 0;
    if (size == 0) LogError("CaptureEncode failed");
    LogDebug("LUX_KVM: Submitting for encode done  %d size %d", m_requestCount, size);
    m_encodedFrameSize = static_cast<uint32_t>(size);
    m_offset = 0;
    m_chunksLeft = ChunksOf(m_encodedFrameSize);
}

// Returns the error of the request, and the number of the frame's bytes in the chunk. Only the first chunk is
// copied to the send buffer: the head of a later one replaces bytes of the frame that have been sent.
uint32_t DisplayCaptureThread::SendChunk(uint32_t& chunkSize) {
    std::lock_guard lock(m_sendBufferLock);
    constexpr uint32_t kMaxData = EncodedFrameChunk::kMaxData;
    const EncodedFrameChunk head{m_chunksLeft, std::min(m_encodedFrameSize - m_offset, kMaxData),
                                 m_encodedFrameSize};
    chunkSize = head.ChunkSize;
    uint8_t* record = m_pSendBuffer.get();
    if (m_offset >= sizeof head) {
        record = m_encodedFrame.bytes.get() + m_offset - sizeof head;
    } else if (m_encodedFrame.bytes) {
        std::memcpy(record + sizeof head, m_encodedFrame.bytes.get() + m_offset, chunkSize);
    }
    std::memcpy(record, &head, sizeof head);
    return g_pServiceState->m_mailBoxDriverInterface.WriteEncodedBuffer(record, sizeof head + chunkSize);
}

// The thread's last steps, taken by another thread when this one was forced to end.
void DisplayCaptureThread::TerminateDisplayMgr() {
    {
        std::lock_guard lock(m_sendBufferLock);
        m_pSendBuffer.reset();
    }
    {
        const TerminableCalls::Call call(m_mgrCalls);
        m_mgr.Terminate();
    }
    LogInfo("LUX_KVM: mgr.Terminate Done");
    m_displayEvent.Close();
    m_bIsKVMDisplayMgrThreadClosed.exchange(1);
}
