// Transfers bytes between one management console at a time and the firmware. The service sends the console's
// bytes unchanged to the mailbox, and the firmware's bytes unchanged to the console's socket. Further
// connections are accepted at once and wait in a queue.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "base/DetachedThreads.h"
#include "base/Handles.h"
#include "connection/SocketServers.h"
#include "dash/ErrorCheckingMutex.h"
#include "dash/SocketQueue.h"
#include "dash/ThreadPool.h"

class ConnectionAnnouncer;

class DASHClientInterface {
  public:
    // The announcer must outlive this object.
    explicit DASHClientInterface(ConnectionAnnouncer& announcer);
    ~DASHClientInterface();
    DASHClientInterface(const DASHClientInterface&) = delete;
    DASHClientInterface& operator=(const DASHClientInterface&) = delete;

    // Runs the accept thread: listens and queues connections until the service stops.
    void HandleDASHClientThread();
    // Unblocks the accept thread. The stop path calls it once the service is stopping.
    void CloseHttpsSocket();

    // Copies `size` bytes from the firmware for the client. Blocks until the send task has sent the payload
    // before them, which takes seconds when the client does not read. Replaces that payload when there is no
    // send task. Called on the mailbox read thread.
    void updateDataToClient(const void* payload, size_t size);

    // Reports the end of the open session to the firmware, and closes the socket when that is the host's
    // task. Any thread.
    void CloseSocketWithMPM() { CloseSocketWithMPM(openSession); }
    // Closes the open session's socket without notifying the firmware. Any thread.
    void CloseSocketInZEL() { CloseSocketInZEL(openSession); }

    // Ends all sessions: closes every socket that is still open and waits for the workers. The accept thread
    // must have ended. The destructor calls this too; a second call does nothing.
    void EndSessions();

  private:
    // Numbers the sessions from 1. A task or a close that belongs to one session thus never affects the next,
    // whatever the number of its socket.
    using Session = uint64_t;
    static constexpr Session kNoSession = 0;
    static bool IsOpen(Session session) { return session != kNoSession && session == openSession; }

    void AcceptConnections();
    bool AcceptConnection();
    void HandleQueuedSockets();
    bool AwaitNoSession();
    void EnqueueUnlessWaiting(ThreadPool& pool, std::function<void()> task);
    sockaddr_in TakePeerOf(SOCKET socket);
    void KeepUnattended(UniqueSocket socket);
    bool NotifyMPMOfDASHClient(const sockaddr_in& peer);
    void AssociateSocket(UniqueSocket socket);

    void DataRecvThread();
    bool ReceiveOnce(Session session);
    void updateDataToMPM(SOCKET socket, int size);

    struct SendOutcome {
        int failures = 0;  // number since the last success
        int error = 0;     // code of the last failure
        bool sessionGone = false;
    };
    // Owned by each send task, from the time when the task is queued until it has ended or been dropped.
    class CountedSendTask {
      public:
        CountedSendTask();
        ~CountedSendTask();
        CountedSendTask(const CountedSendTask&) = delete;
        CountedSendTask& operator=(const CountedSendTask&) = delete;
    };
    void SendDataToDASHClient();
    SendOutcome SendPendingData(Session session);

    static void NoteActivity();
    void MonitorClientActivity();
    void CloseSocketWithMPM(Session session);
    // Returns false, and closes nothing, when this session is not open. The session may have ended, and the
    // next one may have begun, during a request to the firmware.
    bool CloseSocketInZEL(Session session);
    void StartResetThread();
    void ResetDASHCommunication();

    ConnectionAnnouncer& m_announcer;
    std::atomic<uint8_t> m_bStopSession{0};
    std::atomic<Session> m_receiveEnded{kNoSession};  // whose console sends no more data
    HttpsSocket m_httpsSocket;
    // The buffer holds the bytes of one recv() and a terminating NUL.
    static constexpr int kReceiveSize = 0x20000;
    std::array<char, kReceiveSize + 1> m_recvBuffer{};
    std::unordered_map<SOCKET, sockaddr_in> m_socketAddressMap{8};  // of waiting sockets
    std::mutex m_socketAddressMutex;
    ThreadPool m_sendPool{1};
    ThreadPool m_recvPool{1};
    ThreadPool m_monitorPool{1};
    ThreadPool m_queuePool{1};
    SocketQueue m_socketQueue;
    // Connections that could not be announced to the firmware.
    std::vector<UniqueSocket> m_unattendedSockets;
    std::mutex m_unattendedMutex;
    DetachedThreads m_resetThreads;
    std::atomic<uint8_t> m_bEnded{0};

    // State of the connection. The process has only one. Lock order: sendMutex, socketMutex, receiveMutex.
    static inline ErrorCheckingMutex socketMutex;
    static inline std::condition_variable_any socketCondition;
    static inline std::atomic<Session> openSession{kNoSession};  // changes under socketMutex
    static inline Session lastSession = kNoSession;
    // The open session's socket; changes under socketMutex and receiveMutex.
    static inline UniqueSocket acceptSocket;
    static inline std::mutex receiveMutex;  // held during one recv(), which does not block
    static inline std::mutex sendMutex;
    static inline std::condition_variable sendCondition;
    static inline std::unique_ptr<char[]> Sendbuffer;
    static inline int32_t SendSize = 0;
    static inline int sendTasks = 0;  // that are queued or run; guarded by sendMutex
    // 100 ns units since the Unix epoch.
    static inline std::atomic<int64_t> last_activity_time{0};
};
