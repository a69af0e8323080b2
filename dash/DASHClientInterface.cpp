// The accept thread, and the queue from which one connection at a time becomes the session.
#include "dash/DASHClientInterface.h"

#include <exception>
#include <memory>
#include <utility>

#include "base/Log.h"
#include "connection/ConnectionAnnouncer.h"
#include "state/ServiceState.h"

namespace {
constexpr DWORD kListenRetryMilliseconds = 5000;
}  // namespace

void DASHClientInterface::HandleDASHClientThread() {
    while (!g_pServiceState->m_bServiceStopping) {
        if (m_httpsSocket.CreateSocket(g_pServiceState->dashPort) == 0) {
            AcceptConnections();
        } else {
            g_pServiceState->SleepUnlessStopping(kListenRetryMilliseconds);
        }
    }
    LogInfo("%s: Exiting DASH Handler Thread", "HandleDASHClientThread");
}

void DASHClientInterface::AcceptConnections() {
    bool listening = true;
    while (listening && !g_pServiceState->m_bServiceStopping) {
        try {
            listening = AcceptConnection();
        } catch (const std::exception& error) {
            const char* text = error.what();
            LogError("Last error: %d, exception error: %s", GetLastError(),
                     *text ? text : "Unknown exception");
        }
    }
}

bool DASHClientInterface::AcceptConnection() {
    LogInfo("Calling HTTPS Socket Accept");
    sockaddr_in peer{};
    UniqueSocket socket = m_httpsSocket.AcceptSocket(false, peer);
    if (!socket) {
        if (!g_pServiceState->m_bServiceStopping) LogError("Accept socket is invalid");
        m_httpsSocket.CloseBaseSocket();
        return false;
    }
    {
        std::lock_guard lock(m_socketAddressMutex);
        m_socketAddressMap[socket.Get()] = peer;
    }
    m_socketQueue.push(std::move(socket));
    LogInfo("Process the accepted connection");
    // The queue holds at most one task for each waiting connection. The first task serves all of them, and
    // another task runs only when the first has given up. Without this limit, tasks would accumulate for as
    // long as the service runs.
    if (m_queuePool.Waiting() < m_socketQueue.size())
        m_queuePool.enqueue(&DASHClientInterface::HandleQueuedSockets, this);
    return true;
}

void DASHClientInterface::CloseHttpsSocket() {
    LogInfo("Close HTTPS socket");
    m_httpsSocket.CloseBaseSocket();
}

void DASHClientInterface::HandleQueuedSockets() {
    while (AwaitNoSession()) {
        LogInfo("Handling queued socket");
        UniqueSocket socket = m_socketQueue.pop();
        if (!socket) return;
        const SOCKET address = socket.Get();
        LogInfo("Popping queued socket with address: %I64x", address);
        if (g_pServiceState->m_bServiceStopping) return KeepUnattended(std::move(socket));
        if (!NotifyMPMOfDASHClient(TakePeerOf(address))) {
            LogError("Failed to create socket for DASH client with address: %I64x", address);
            return KeepUnattended(std::move(socket));
        }
        LogInfo("Spawning threads to send and receive DASH traffic for socket with address: %I64x", address);
        m_bStopSession = 0;
        // The firmware may answer the session's first bytes before the send task is enqueued.
        auto counted = std::make_shared<CountedSendTask>();
        AssociateSocket(std::move(socket));
        EnqueueUnlessWaiting(m_recvPool, [this] { DataRecvThread(); });
        EnqueueUnlessWaiting(m_sendPool, [this, counted = std::move(counted)] { SendDataToDASHClient(); });
        EnqueueUnlessWaiting(m_monitorPool, [this] { MonitorClientActivity(); });
        LogInfo("Processing DASH traffic for socket with address: %I64x", address);
    }
}

// A running task may continue with the next session and leave the task behind it waiting. That waiting task
// can then serve the session as well as a new one.
void DASHClientInterface::EnqueueUnlessWaiting(ThreadPool& pool, std::function<void()> task) {
    if (pool.Waiting() == 0) pool.enqueue(std::move(task));
}

// Blocks until there is no session. Returns false when the service stops.
bool DASHClientInterface::AwaitNoSession() {
    std::unique_lock lock(socketMutex);
    socketCondition.wait(lock,
                         [] { return openSession == kNoSession || g_pServiceState->m_bServiceStopping; });
    return !g_pServiceState->m_bServiceStopping;
}

// Removes the entry, because each socket's peer is read only once. Without this, the map would grow with
// every console.
sockaddr_in DASHClientInterface::TakePeerOf(SOCKET socket) {
    std::lock_guard lock(m_socketAddressMutex);
    const auto entry = m_socketAddressMap.extract(socket);
    return entry ? entry.mapped() : sockaddr_in{};
}

// Keeps the socket open without serving it. A reset does not close it; the end of this object does.
void DASHClientInterface::KeepUnattended(UniqueSocket socket) {
    std::lock_guard lock(m_unattendedMutex);
    m_unattendedSockets.push_back(std::move(socket));
}

bool DASHClientInterface::NotifyMPMOfDASHClient(const sockaddr_in& peer) {
    const uint32_t error = m_announcer.Announce(g_pServiceState->dashPort, peer);
    LogInfo("Remote Port %d", peer.sin_port);
    LogInfo("Response returned for HTTPS DASH Request from Mailbox driver");
    return error == ERROR_SUCCESS;
}

void DASHClientInterface::AssociateSocket(UniqueSocket socket) {
    std::lock_guard lock(socketMutex);
    if (openSession != kNoSession) {
        LogInfo("%s: Forcibly Closing existing socket", "AssociateSocket");
        // When CloseSocketWithMPM closes the socket itself, it locks socketMutex a second time. That throws
        // and ends the calling task.
        CloseSocketWithMPM();
    }
    {
        std::lock_guard receiving(receiveMutex);
        acceptSocket = std::move(socket);
    }
    // The check for an idle console may begin up to a second late, behind the check of an earlier session.
    NoteActivity();
    openSession = ++lastSession;
    socketCondition.notify_all();
}
