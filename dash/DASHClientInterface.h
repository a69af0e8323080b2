// Carries bytes between one management console at a time and the firmware: what the console sends goes
// unchanged to the mailbox, what the firmware answers goes unchanged to the console's socket. Further
// connections are accepted at once and wait in a queue.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "base/DetachedThreads.h"
#include "connection/SocketServers.h"
#include "dash/ErrorCheckingMutex.h"
#include "dash/SocketQueue.h"
#include "dash/ThreadPool.h"

class ConnectionAnnouncer;

class DASHClientInterface {
  public:
    // The announcer outlives this object.
    explicit DASHClientInterface(ConnectionAnnouncer& announcer);
    ~DASHClientInterface();
    DASHClientInterface(const DASHClientInterface&) = delete;
    DASHClientInterface& operator=(const DASHClientInterface&) = delete;

    // Body of the accept thread: listens and queues connections until the service stops.
    void HandleDASHClientThread();
    // Breaks the accept thread out of its wait. The stop path calls it once the service is stopping.
    void CloseHttpsSocket();

    // Takes `size` bytes of the firmware's for the client; the bytes are copied. A payload that the send task
    // has not yet taken is replaced. Waits while a send is under way, for seconds when the client doesn't
    // read. The mailbox read thread.
    void updateDataToClient(const void* payload, size_t size);

    // Tells the firmware that the connection has gone, and closes it if that is the host's business. Any
    // thread.
    void CloseSocketWithMPM();
    // Closes the session's socket without a word to the firmware. With `only`, nothing unless it is that one:
    // while the firmware was asked, the session may have ended and the next one begun. Any thread.
    void CloseSocketInZEL(SOCKET only = INVALID_SOCKET);

    // The end of the object's work, which the destructor reaches at the latest: closes every socket that is
    // still held and waits for the workers. The accept thread must have ended. May be called again.
    void EndSessions();

  private:
    void AcceptConnections();
    bool AcceptConnection();
    void HandleQueuedSockets();
    bool AwaitNoSession();
    void EnqueueUnlessWaiting(ThreadPool& pool, void (DASHClientInterface::*task)());
    sockaddr_in TakePeerOf(SOCKET socket);
    void KeepUnattended(SOCKET socket);
    bool NotifyMPMOfDASHClient(const sockaddr_in& peer);
    void AssociateSocket(SOCKET socket);

    void DataRecvThread();
    bool ReceiveOnce(SOCKET& socket);
    void updateDataToMPM(int size);

    struct SendOutcome {
        int failures = 0;  // since the last success
        int error = 0;     // of the last failure
        bool sessionGone = false;
    };
    void SendDataToDASHClient();
    SendOutcome SendPendingData();

    static void NoteActivity();
    void MonitorClientActivity();
    void StartResetThread();
    void ResetDASHCommunication();

    ConnectionAnnouncer& m_announcer;
    std::atomic<uint8_t> m_bStopSession{0};
    std::atomic<uint8_t> m_bReceiveEnded{0};  // nothing more comes from the session's console
    HttpsSocket m_httpsSocket;
    // One receive, and the NUL that is stored behind it.
    static constexpr int kReceiveSize = 0x20000;
    std::array<char, kReceiveSize + 1> m_recvBuffer{};
    std::unordered_map<SOCKET, sockaddr_in> m_socketAddressMap{8};  // of those that wait
    std::mutex m_socketAddressMutex;
    ThreadPool m_sendPool{1};
    ThreadPool m_recvPool{1};
    ThreadPool m_monitorPool{1};
    ThreadPool m_queuePool{1};
    SocketQueue m_socketQueue;
    // Connections that the firmware could not be told of.
    std::vector<SOCKET> m_unattendedSockets;
    std::mutex m_unattendedMutex;
    DetachedThreads m_resetThreads;
    std::atomic<uint8_t> m_bEnded{0};

    // The connection: one for the whole process. Lock order: sendMutex, socketMutex, receiveMutex.
    static inline ErrorCheckingMutex socketMutex;
    static inline std::condition_variable_any socketCondition;
    static inline std::atomic<SOCKET> acceptSocket{INVALID_SOCKET};
    static inline std::mutex receiveMutex;  // held for one recv(), which doesn't block
    static inline std::mutex sendMutex;
    static inline std::condition_variable sendCondition;
    static inline std::unique_ptr<char[]> Sendbuffer;
    static inline int32_t SendSize = 0;
    // 100 ns units since the Unix epoch.
    static inline std::atomic<int64_t> last_activity_time{0};
};
