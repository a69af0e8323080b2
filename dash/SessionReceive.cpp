// Transfers bytes from the client to the firmware.
#include "base/Log.h"
#include "dash/DASHClientInterface.h"
#include "state/ServiceState.h"

void DASHClientInterface::DataRecvThread() {
    LogInfo("%s: entry", "DataRecvThread");
    const Session session = openSession;
    bool receiving = true;
    while (receiving && !g_pServiceState->m_bServiceStopping && !m_bStopSession) {
        receiving = ReceiveOnce(session);
        Sleep(0);
    }
    if (!receiving) m_receiveEnded = session;
    CloseSocketWithMPM(session);
    LogInfo("%s: exit", "DataRecvThread");
}

// Returns false when the session or its connection has ended.
bool DASHClientInterface::ReceiveOnce(Session session) {
    SOCKET socket = INVALID_SOCKET;
    int received = 0, error = 0;
    {
        std::lock_guard lock(receiveMutex);
        if (!IsOpen(session)) {
            LogInfo("preventing recv() to avoid multi-threading issues.");
            return false;
        }
        socket = acceptSocket.Get();
        // The error below must be that of this recv(), not of an earlier empty one.
        WSASetLastError(0);
        received = recv(socket, m_recvBuffer.data(), kReceiveSize, 0);
        error = WSAGetLastError();
    }
    if (received > 0) {
        NoteActivity();
        LogInfo("recv() success. DASH packet received by socket server of size: %d, Socket address: %I64x",
                received, socket);
        updateDataToMPM(socket, received);
        return true;
    }
    if (received == 0) {
        NoteActivity();
        LogInfo(
            "recv() success. But ZEL received 0 size buffer. Assuming client closed the connection. "
            "Socket address: %I64x",
            socket);
        if (error != 0) LogError("%s: recv() failed with error: %d", "DataRecvThread", error);
        return false;
    }
    if (error == WSAEWOULDBLOCK || error == WSAEINTR) return true;
    if (error != 0) LogError("recv() failed. Error: %d", error);
    return false;
}

void DASHClientInterface::updateDataToMPM(SOCKET socket, int size) {
    LogInfo("%s: Updating data to be sent from client to MPM", "updateDataToMPM");
    m_recvBuffer.at(size) = 0;
    DashPacket packet{socket, m_recvBuffer.data(), static_cast<uint32_t>(size), nullptr, 0};
    if (!g_pServiceState->m_bServiceStopping)
        g_pServiceState->m_mailBoxDriverInterface.WriteDASHPacket(&packet);
    LogInfo("%s: exit", "updateDataToMPM");
}
