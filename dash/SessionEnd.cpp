// Ends a session: the idle limit, the closing of its socket, and the reset after a fault.
#include <system_error>

#include "base/Log.h"
#include "dash/DASHClientInterface.h"
#include "mailbox/FirmwareLevels.h"
#include "state/ServiceState.h"

namespace {

constexpr int64_t kTicksPerSecond = 10'000'000;  // of 100 ns
constexpr int kIdleLimitSeconds = 5;
constexpr DWORD kIdleCheckMilliseconds = 1000;

// 100 ns units since the Unix epoch.
int64_t CurrentTime() {
    constexpr int64_t kUnixEpoch = 116'444'736'000'000'000;  // as a FILETIME
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return (static_cast<int64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime) - kUnixEpoch;
}

}  // namespace

DASHClientInterface::DASHClientInterface(ConnectionAnnouncer& announcer) : m_announcer(announcer) {
    m_socketAddressMap.max_load_factor(1.0f);
}

DASHClientInterface::~DASHClientInterface() {
    EndSessions();
}

void DASHClientInterface::EndSessions() {
    if (m_bEnded.exchange(1)) return;
    // Threads that wait for a connection or a payload are woken first, because neither may ever arrive.
    m_socketQueue.close();
    {
        std::lock_guard lock(sendMutex);
        m_bStopSession = 1;
    }
    sendCondition.notify_all();
    CloseSocketInZEL();
    ResetDASHCommunication();
    m_resetThreads.AwaitEnd(INFINITE);
    // One may have begun while the pools were being stopped.
    if (openSession != kNoSession) CloseSocketInZEL();
    std::lock_guard lock(sendMutex);
    SendSize = 0;
    Sendbuffer.reset();
}

void DASHClientInterface::NoteActivity() {
    last_activity_time.exchange(CurrentTime());
}

void DASHClientInterface::MonitorClientActivity() {
    const Session session = openSession;
    while (!m_bStopSession && IsOpen(session) &&
           g_pServiceState->SleepUnlessStopping(kIdleCheckMilliseconds)) {
        const int64_t idle = CurrentTime() - last_activity_time;
        if (idle < kIdleLimitSeconds * kTicksPerSecond) continue;
        LogWarn("Server has not received requests for %lld seconds max %d. Initiating socket shutdown.",
                idle / kTicksPerSecond, kIdleLimitSeconds);
        CloseSocketInZEL(session);
        return;
    }
}

void DASHClientInterface::CloseSocketWithMPM(Session session) {
    if (!IsOpen(session)) return;
    const uint32_t error =
        g_pServiceState->m_mailBoxDriverInterface.WriteCloseSocketcmd(g_pServiceState->dashPort);
    if (error != ERROR_SUCCESS) {
        LogWarn("MPM returned code %d for WriteCloseSocketcmd", error);
        // When the session has ended meanwhile, a reset would only end the next one.
        if (CloseSocketInZEL(session)) StartResetThread();
    } else if (g_pServiceState->m_vorkVersion < FirmwareLevel::DashCloseByFirmware) {
        CloseSocketInZEL(session);
    }
    // Newer firmware ends the connection itself. The idle limit handles the case where it does not.
}

bool DASHClientInterface::CloseSocketInZEL(Session session) {
    std::lock_guard lock(socketMutex);
    const bool isOpen = IsOpen(session);
    if (!isOpen) {
        LogInfo("Accept socket is Invalid");
    } else {
        // The session ends before the receive task can detect the end of the connection. Otherwise that task
        // would report a close to the firmware that is not its own.
        openSession = kNoSession;
        m_bStopSession = 1;
        LogInfo("Closing accept socket with address: %I64x", acceptSocket.Get());
        shutdown(acceptSocket.Get(), SD_SEND);
        int error = 0;
        {
            // A concurrent recv() must not run on a recycled handle.
            std::lock_guard receiving(receiveMutex);
            if (closesocket(acceptSocket.Release()) != 0) error = WSAGetLastError();
        }
        socketCondition.notify_all();
        if (error) {
            LogError("closesocket() API failed with error: %d", error);
            return true;
        }
    }
    LogInfo("%s: CloseSocket, After sock close", "CloseSocketInZEL");
    return isOpen;
}

// The workers that the reset joins are the ones that detect the fault, so the reset needs its own thread.
void DASHClientInterface::StartResetThread() {
    try {
        m_resetThreads.Start([this] { ResetDASHCommunication(); });
    } catch (const std::system_error& error) {
        // The session has ended anyway, and the next one may succeed. A stop of the service also continues
        // here.
        LogError("%s: no thread for the reset: %s", "StartResetThread", error.what());
    }
}

// The pools do not restart: a reset ends the service's DASH traffic until the process restarts.
void DASHClientInterface::ResetDASHCommunication() {
    LogWarn("Resetting DASH communication");
    m_bStopSession = 1;
    for (ThreadPool* pool : {&m_sendPool, &m_recvPool, &m_monitorPool, &m_queuePool})
        pool->Stop();
    // A console that connects from now on stays open.
    for (auto sockets = m_socketQueue.takeAll(); !sockets.empty(); sockets.pop()) {
        const SOCKET socket = sockets.front().Get();
        LogInfo("Closing accept socket with address: %I64x", socket);
        shutdown(socket, SD_SEND);
    }
    m_bStopSession = 0;
}
