#include "kvm/ZelKvmAppThread.h"

#include <exception>
#include <string>
#include <system_error>

#include "base/Log.h"
#include "kvm/AgentPipeRecords.h"
#include "mailbox/DisplayRecords.h"
#include "state/ServiceState.h"

namespace {

constexpr int kConnectAttempts = 200;
constexpr DWORD kConnectPause = 10;  // milliseconds
constexpr DWORD kEndPoll = 100;

std::string TextOf(DWORD error) {
    char text[256] = "";
    if (FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                       sizeof text, nullptr) == 0)
        return "No error code found";
    return text;
}

}  // namespace

ZelKvmAppThread::ZelKvmAppThread(DisplayCaptureThread& capture) : m_capture(capture) {}

ZelKvmAppThread::~ZelKvmAppThread() {
    SignalStop();
    StopIfStarted();
}

void ZelKvmAppThread::Start() {
    std::lock_guard lock(m_threadMutex);
    if (m_pZelKvmAppThreadObj) return;
    m_bIsKVMAppThreadClosed.exchange(0);
    m_kvmAppEvent.Open();
    try {
        m_pZelKvmAppThreadObj = g_pServiceState->m_detachedThreads.StartOwned([this] { Run(); });
    } catch (const std::system_error&) {
        m_kvmAppEvent.Close();
        throw;
    }
    if (!m_pZelKvmAppThreadObj) m_kvmAppEvent.Close();
}

void ZelKvmAppThread::Run() {
    if (const HANDLE event = m_kvmAppEvent.Create("m_KvmAppEvent")) {
        LogInfo("LUX_KVM: CreateEvent m_KvmAppEvent handle %p", event);
        try {
            TalkToAgent();
        } catch (const std::exception& exception) {
            LogError("%s: ended by an exception: %s", "ZelKvmAppThread", exception.what());
        }
    } else {
        LogError("LUX_KVM: CreateEvent m_KvmAppEvent failed Error code: %lu", GetLastError());
    }
    m_pipe.Close();
    m_kvmAppEvent.Close();
    m_bIsKVMAppThreadClosed.exchange(1);
}

void ZelKvmAppThread::TalkToAgent() {
    if (!m_pipe.Create(kAgentPipeName) || !AwaitAgent()) return;
    LogInfo("LUX_KVM: Namedpipe connected successfully");
    ReceiveDisplayConfig();
    LogInfo("LUX_KVM: Waiting for KVM app event");
    if (!m_kvmAppEvent.Await()) {
        LogError("Error in Wait for Single Object Error code: %lu", GetLastError());
        return;
    }
    const PostedEvents::Taken posted = m_kvmAppEvent.Take();
    const KvmAppEvent event = posted.Has(AppEvtExit) ? AppEvtExit : AppEvtStartKVMOperation;
    LogInfo("LUX_KVM: Received event %d", event);
    if (event == AppEvtStartKVMOperation) SendStartMessage();
}

bool ZelKvmAppThread::AwaitAgent() {
    DWORD error = ERROR_SUCCESS;
    for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
        LogInfo("LUX_KVM: Waiting for the named pipe connection");
        if (m_pipe.Connect()) return true;
        error = GetLastError();
        if (m_pipe.IsCancelled()) return false;
        Sleep(kConnectPause);
    }
    LogError("LUX_KVM:Error Connecting to the namedpipe. Error code: %lu", error);
    return false;
}

// The first message counts. What a longer one has behind the record is dropped.
void ZelKvmAppThread::ReceiveDisplayConfig() {
    ZEL_ServiceToKVMApp_pipe record{};
    DWORD bytes = 0;
    if (!m_pipe.Read(&record, sizeof record, bytes) && GetLastError() != ERROR_MORE_DATA) {
        LogInfo("LUX_KVM: ReadFile ZEL_ServiceToKVMApp_pipe eNotifyDisplayConfig failed");
    } else if (bytes < sizeof record) {
        LogWarn("LUX_KVM: message of %u byte(s) is too short for eNotifyDisplayConfig, ignored", bytes);
        return;
    }
    if (record.message != eNotifyDisplayConfig) return;
    m_capture.SetConfig({record.width, record.height, record.vidPnSourceId});
    const DisplayConfigRecord config{record.width, record.height};
    const uint32_t status = g_pServiceState->m_mailBoxDriverInterface.WriteDisplayConfig(&config);
    LogInfo(
        "LUX_KVM: IOCTL_Tarvix_SEND_DISPLAY_CONFIG sent status 0x%x, notify to display thread width %d "
        "height "
        "%d",
        status, config.width, config.height);
    m_capture.SetDisplayMgrEvent(DispEvtDisplayEnumConfig);
    LogInfo("DispEvtDisplayEnumConfig success");
}

void ZelKvmAppThread::SendStartMessage() {
    const ZEL_KVMAppStart_pipe record{eNotifyStartKVMOperation};
    DWORD bytes = 0;
    m_pipe.Write(&record, sizeof record, bytes);
    LogInfo("Written eNotifyDisplayConfig %d", bytes);
}

void ZelKvmAppThread::SetKvmAppEvent(KvmAppEvent event) {
    switch (m_kvmAppEvent.Post(event)) {
        case PostedEvents::Outcome::Posted:
            LogInfo("LUX_KVM: SetKvmAppEvent posted %d", event);
            break;
        case PostedEvents::Outcome::NobodyWaits:
            LogInfo("LUX_KVM: m_KvmAppEvent null, nothing to post %d", event);
            break;
        case PostedEvents::Outcome::Failed: {
            const DWORD error = GetLastError();
            LogError("LUX_KVM: m_KvmAppEvent SetEvent failed Error: %lu", error);
            LogError("%s", TextOf(error));
        }
    }
}

void ZelKvmAppThread::SignalStop() {
    m_isStopping = true;
    m_pipe.Cancel();
}

void ZelKvmAppThread::StopIfStarted() {
    if (Object()) Stop();
}

void ZelKvmAppThread::Stop() {
    std::lock_guard one(m_stopMutex);
    std::thread::id thread;
    {
        std::lock_guard lock(m_threadMutex);
        if (m_pZelKvmAppThreadObj) thread = m_pZelKvmAppThreadObj->get_id();
    }
    if (thread != std::thread::id()) {
        SetKvmAppEvent(AppEvtExit);
        LogInfo("LUX_KVM: Waiting for the ZelKvmAppThread to exit");
        const auto waiting = g_pServiceState->m_mailBoxDriverInterface.WaitingFor(thread);
        while (!m_bIsKVMAppThreadClosed) {
            Sleep(kEndPoll);
            LogInfo("LUX_KVM: m_bIsKVMAppThreadClosed %d ", m_bIsKVMAppThreadClosed.load());
            // The thread may be about to block, so it is cancelled repeatedly.
            if (m_isStopping) m_pipe.Cancel();
        }
        std::lock_guard lock(m_threadMutex);
        m_pZelKvmAppThreadObj->join();
        m_pZelKvmAppThreadObj.reset();
    }
    LogInfo("LUX_KVM: ZelKvmAppThread exit complete");
}

const void* ZelKvmAppThread::Object() {
    std::lock_guard lock(m_threadMutex);
    return m_pZelKvmAppThreadObj.get();
}
