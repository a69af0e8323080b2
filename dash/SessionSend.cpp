// Sends bytes from the firmware to the client. At most one payload is pending. The next one waits until it is
// sent, and replaces it when there is no send task.
#include <cstring>
#include <new>

#include "base/Log.h"
#include "dash/DASHClientInterface.h"
#include "state/ServiceState.h"

namespace {
constexpr int kSendAttempts = 5;
constexpr DWORD kSendRetryMilliseconds = 1000;

bool IsTemporary(int error) {
    return error == WSAEWOULDBLOCK || error == WSAEINTR;
}

}  // namespace

void DASHClientInterface::updateDataToClient(const void* payload, size_t size) {
    LogInfo("%s: Updating data to be sent from MPM to client", "updateDataToClient");
    LogInfo("Buffer size %llu", size);
    const Session session = openSession;
    std::unique_lock lock(sendMutex);
    // A send task takes a pending payload at once, and then sends or drops it, or ends. All limits of a
    // session thus apply to this wait too.
    sendCondition.wait(lock, [] { return SendSize == 0 || sendTasks == 0; });
    if (session != kNoSession && session != openSession) {
        // The next console must not receive it.
        LogWarn("%s: Dropping a payload of %llu bytes for a session that has ended", "updateDataToClient",
                size);
        LogInfo("%s: exit", "updateDataToClient");
        return;
    }
    if (Sendbuffer)
        LogWarn("%s: Replacing a payload of %d bytes that was not sent", "updateDataToClient", SendSize);
    Sendbuffer.reset(new (std::nothrow) char[size + 1]);
    if (Sendbuffer) {
        std::memcpy(Sendbuffer.get(), payload, size);
        SendSize = static_cast<int32_t>(size);
        sendCondition.notify_all();
    } else {
        LogError("%s: Failed to allocate memory for Sendbuffer", "updateDataToClient");
    }
    LogInfo("%s: exit", "updateDataToClient");
}

DASHClientInterface::CountedSendTask::CountedSendTask() {
    std::lock_guard lock(sendMutex);
    ++sendTasks;
}

DASHClientInterface::CountedSendTask::~CountedSendTask() {
    {
        std::lock_guard lock(sendMutex);
        --sendTasks;
    }
    sendCondition.notify_all();
}

void DASHClientInterface::SendDataToDASHClient() {
    LogInfo("%s: entry", "SendDataToDASHClient");
    std::unique_lock lock(sendMutex);
    while (!g_pServiceState->m_bServiceStopping && !m_bStopSession && openSession != kNoSession) {
        sendCondition.wait(
            lock, [this] { return SendSize != 0 || m_bStopSession || g_pServiceState->m_bServiceStopping; });
        if (m_bStopSession || g_pServiceState->m_bServiceStopping) break;
        LogInfo("%s: after Waiting for Send Size to get Updated, size %d", "SendDataToDASHClient", SendSize);
        // It is not always the session for which the task was queued: a task may sleep across sessions.
        const Session session = openSession;
        const SendOutcome outcome = SendPendingData(session);
        SendSize = 0;
        Sendbuffer.reset();
        sendCondition.notify_all();
        if (outcome.sessionGone) break;
        if (outcome.failures == kSendAttempts) {
            LogError("send() failed 5 times. Closing send thread. Error: %d", outcome.error);
            CloseSocketInZEL(session);
            StartResetThread();
            break;
        }
    }
    // A payload for a session that has ended must not go to the next one.
    if (openSession == kNoSession) {
        SendSize = 0;
        Sendbuffer.reset();
    }
    LogInfo("%s: exit", "SendDataToDASHClient");
}

DASHClientInterface::SendOutcome DASHClientInterface::SendPendingData(Session session) {
    SendOutcome outcome;
    int offset = 0;
    int remaining = SendSize;
    do {
        if (m_bStopSession || outcome.failures >= kSendAttempts) break;
        std::lock_guard lock(socketMutex);
        if (!IsOpen(session)) {
            outcome.sessionGone = true;
            break;
        }
        const int sent = send(acceptSocket.Get(), Sendbuffer.get() + offset, remaining, 0);
        if (sent < 1) {
            outcome.error = WSAGetLastError();
            LogInfo("send() failed. Error: %d", outcome.error);
            // The receive task has also detected the end and closes the session. Counting five more failures
            // here would end all sessions permanently.
            if (m_receiveEnded == session && !IsTemporary(outcome.error)) break;
            g_pServiceState->SleepUnlessStopping(kSendRetryMilliseconds);
            ++outcome.failures;
            continue;
        }
        NoteActivity();
        offset += sent;
        remaining -= sent;
        LogInfo("send() success. %s: DASH data sent: %d (0x%x), SendSize %d, DataSend %d",
                "SendDataToDASHClient", offset, offset, remaining, sent);
        outcome.failures = 0;
        if (remaining < 1) break;
    } while (!g_pServiceState->m_bServiceStopping);
    return outcome;
}
