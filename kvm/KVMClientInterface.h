// Remote KVM: the listener, the session of its one viewer, and the transfer of bytes between the viewer and
// the firmware. The firmware controls it: one command starts the listener, another sets the trusted peer, a
// third ends the session. The stream is opaque: each recv() becomes one request to the mailbox.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "base/Handles.h"
#include "connection/SocketServers.h"
#include "kvm/DisplayManager.h"
#include "kvm/KVMAgent.h"

class ConnectionAnnouncer;
class HostControl;
class StatusFile;

// m_kvmState.
inline constexpr uint8_t kKvmNeverEnabled = 0;
inline constexpr uint8_t kKvmEnabled = 1;  // the listener thread keeps running
inline constexpr uint8_t kKvmClosing = 2;

// m_kvmSocketState.
inline constexpr uint16_t kKvmNoClient = 0;
inline constexpr uint16_t kKvmClientConnected = 1;
inline constexpr uint16_t kKvmCleanedUp = 2;

class KVMClientInterface {
  public:
    // All arguments must outlive this object.
    KVMClientInterface(ConnectionAnnouncer& announcer, StatusFile& statusFile, HostControl& hostControl,
                       DisplayMgr& displayMgr);
    ~KVMClientInterface();
    KVMClientInterface(const KVMClientInterface&) = delete;
    KVMClientInterface& operator=(const KVMClientInterface&) = delete;

    // --- firmware commands, on the mailbox read thread (KVMCommands.cpp) ---

    // Starts the listener thread. Does nothing while the thread of an earlier session has not been joined by
    // CloseKVMSession. Throws std::system_error when the thread cannot be started.
    void EnableKVM();
    // Stores the address and the port to trust for one session. Each is 32 bits; the address is in
    // sockaddr_in format. Longer payloads are truncated; shorter ones leave the remaining bytes unchanged.
    void SetKVMIPAndPort(const void* payload, size_t length);
    // Ends the session and blocks until its clean-up is complete.
    void CloseKVMSession();
    // Starts or ends the session of a host in safe boot. The first 32 bits of the `size`-byte payload are the
    // state. The end of the session reboots the host.
    void HandleSafebootState(const void* payload, size_t size);
    // Begins a session in display mode; returns what DoInitLUXKVM returns, and false during the clean-up of
    // an earlier session. Throws std::system_error when a thread cannot be started.
    bool BeginDisplaySession();
    // Sends `size` bytes from the firmware to the viewer (KVMDataBridge.cpp). Returns when the last byte is
    // sent or the session has failed. A viewer that does not read blocks the caller.
    void SendDataToKVMClient(const void* data, size_t size);

    // Starts the thread that forwards the viewer's bytes to the firmware, unless it already runs. Called on
    // the listener thread (RunServerKVMThread).
    void StartDataRecvThread();

    // --- the end of a session from the host's side (SessionEnd.cpp); any thread ---

    // Signals the listener thread to leave its accept loop and run its clean-up.
    void TriggerKVMShutdown();
    // Cleans up after the session. It runs once for each session, on the first thread that calls it. Any
    // thread except the receive thread.
    void DoKVMCleanUp();

    // The service stops, and the clean-up waits for the agent no longer. Any thread.
    void SignalStop() { m_displayManager.SignalStop(); }
    // The process ends: SignalEnd makes the listener thread end and ends the display's threads, TakeThread
    // returns the listener thread for its caller to join, or null. Any thread except these.
    void SignalEnd();
    std::unique_ptr<std::thread> TakeThread();

    // Resets the trusted address, so that every peer is trusted until the firmware sets a new one. Any
    // thread.
    void ForgetTrustedAddress();

    std::atomic<uint8_t> m_kvmState{kKvmNeverEnabled};
    std::atomic<uint16_t> m_kvmSocketState{kKvmNoClient};
    KVMAgent m_agent;
    DisplayManager m_displayManager;

  private:
    // Both fields fit in 64 bits, so that one atomic store changes them together. The port is logged but
    // never compared.
    struct alignas(uint64_t) TrustedPeer {
        uint32_t m_kvmTrustedIP = 0;  // in sockaddr_in format; 0: every peer is trusted
        uint32_t m_kvmTrustedPort = 0;
    };

    // The listener thread (RunServerKVMThread.cpp). Each EnableKVM starts one.
    void ServeKVM();
    void RunServerKVMThread();
    void AwaitEarlierSession();
    bool IsEarlierSessionClosing();
    bool ServeClients();
    enum class Beginning {
        Begun,
        Failed,     // the agent could not be started
        Overtaken,  // another thread has cleaned up the session
    };
    Beginning BeginSession(UniqueSocket socket, const sockaddr_in& peer);
    bool IsTrusted(const sockaddr_in& peer) const;
    Beginning DoInitKVM(UniqueSocket socket);
    Beginning DoInitPostAccept(UniqueSocket socket);
    bool TakeClient(UniqueSocket socket);
    bool MarkConnected();

    // The receive thread and the transfer of data (KVMDataBridge.cpp).
    void KVMDataRecvThread();
    bool ReceiveOnce();
    void PassToFirmware(uint32_t size);
    void WriteWithRetries(uint32_t size);
    void TriggerShutdown(const char* caller);
    bool SendAll(const char* data, size_t size);

    // The end of a session (SessionEnd.cpp).
    void KVMCleanupCommon();
    uint16_t EnterCleanUp();
    void RequireCleanUp();
    void CleanUpSession();
    void DoCleanUp();
    void CloseSockets();
    void JoinRecvThread();
    void StartAgentCleanUp();
    void CleanUpAgent();
    void RemoveAgentLater();
    void SetKVMStatus(bool running);

    static constexpr int kReceiveSize = 0x20000;

    ConnectionAnnouncer& m_announcer;
    StatusFile& m_statusFile;
    HostControl& m_hostControl;

    KvmSocket m_kvmSocket;
    std::mutex m_threadObjectMutex;  // guards the owning pointer
    std::unique_ptr<std::thread> m_pKVMThreadObj;
    std::atomic<TrustedPeer> m_kvmTrusted{TrustedPeer{}};
    std::atomic<uint8_t> m_bShutdownTriggered{0};  // reset when the listener thread starts
    std::atomic<int> m_agentCleanUps{0};           // number of running agent clean-ups
    // Connections from untrusted peers. They stay open until this object is destroyed. Only the listener
    // thread accesses this vector.
    std::vector<UniqueSocket> m_untrustedSockets;

    // Guards the beginning of a session against a clean-up on another thread, and all fields up to the mark.
    std::mutex m_sessionMutex;
    // Set by the listener thread, reset by the first clean-up: after that no client gets a session, and no
    // receive thread starts, until the next listener thread.
    bool m_sessionMayBegin = false;
    bool m_cleanUpRuns = false;
    std::unique_ptr<std::thread> m_pRecvThreadObj;
    // The client's socket, and before it those of earlier clients, which stay open until the session ends.
    std::vector<UniqueSocket> m_sessionSockets;
    // --- the mark ---

    std::atomic<uint8_t> m_bSessionActive{0};
    // Borrowed from m_sessionSockets.
    std::atomic<SOCKET> m_clientSocket{INVALID_SOCKET};
    // Holds the bytes of one recv() and a terminating NUL. Only the receive thread accesses it.
    std::array<char, kReceiveSize + 1> m_recvBuffer{};
};
