// Remote KVM: the listener, the session of its one viewer, and the bytes between the viewer and the firmware.
// The firmware controls it: one command starts the listener, another names the peer that it trusts, a third
// ends the session. The stream is opaque: one recv() becomes one request to the mailbox.
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

#include "connection/SocketServers.h"
#include "kvm/KVMAgent.h"

class ConnectionAnnouncer;
class HostControl;
class StatusFile;

// m_kvmState.
inline constexpr uint8_t kKvmNeverEnabled = 0;
inline constexpr uint8_t kKvmEnabled = 1;  // the listener thread is to run
inline constexpr uint8_t kKvmClosing = 2;

// m_kvmSocketState.
inline constexpr uint16_t kKvmNoClient = 0;
inline constexpr uint16_t kKvmClientConnected = 1;
inline constexpr uint16_t kKvmCleanedUp = 2;

class KVMClientInterface {
  public:
    // The three outlive this object.
    KVMClientInterface(ConnectionAnnouncer& announcer, StatusFile& statusFile, HostControl& hostControl);
    ~KVMClientInterface();
    KVMClientInterface(const KVMClientInterface&) = delete;
    KVMClientInterface& operator=(const KVMClientInterface&) = delete;

    // --- firmware commands, on the mailbox read thread (KVMCommands.cpp) ---

    // Starts the listener thread. While CloseKVMSession has not joined the thread of an earlier session,
    // nothing is started. A thread that can't be started throws std::system_error.
    void EnableKVM();
    // Stores the address and the port to trust for one session: 32 bits each, the address as in sockaddr_in.
    // Longer payloads are cut; shorter ones leave the rest unchanged.
    void SetKVMIPAndPort(const void* payload, size_t length);
    // Ends the session and waits until its clean-up is over.
    void CloseKVMSession();
    // Starts or ends the session of a host in safe boot: the first 32 bits of the payload of `size` bytes are
    // the state. The end of the session reboots the host.
    void HandleSafebootState(const void* payload, size_t size);
    // Sends `size` bytes from the firmware to the viewer (KVMDataBridge.cpp). Returns when the last of them
    // is sent or the session has failed: a viewer that doesn't read blocks the caller.
    void SendDataToKVMClient(const void* data, size_t size);

    // Starts the thread that carries the viewer's bytes to the firmware, unless it runs. RunServerKVMThread.
    void StartDataRecvThread();

    // --- the end of a session from the host's side (SessionEnd.cpp); any thread ---

    // Makes the listener thread continue with its clean-up.
    void TriggerKVMShutdown();
    // Runs once for each session, on the first thread that calls it. Any thread but the receive thread.
    void DoKVMCleanUp();

    // The end of the process: makes the listener thread end, and joins it. Any thread but that one.
    void SignalEnd();
    void JoinThread();

    // Trusts every peer until the firmware names one. Any thread.
    void ForgetTrustedAddress();

    std::atomic<uint8_t> m_kvmState{kKvmNeverEnabled};
    std::atomic<uint16_t> m_kvmSocketState{kKvmNoClient};
    std::atomic<uint8_t> m_bLuxKvmEnabled{0};
    KVMAgent m_agent;

  private:
    // One word, so that both halves change at once. The port is logged and never compared.
    struct alignas(uint64_t) TrustedPeer {
        uint32_t m_kvmTrustedIP = 0;  // as in sockaddr_in; 0: every peer is trusted
        uint32_t m_kvmTrustedPort = 0;
    };

    // The listener thread (RunServerKVMThread.cpp): one for each EnableKVM.
    void ServeKVM();
    void RunServerKVMThread();
    void AwaitEarlierSession();
    bool ServeClients();
    bool BeginSession(SOCKET socket);
    bool IsTrusted(const sockaddr_in& peer) const;
    bool DoInitKVM(SOCKET socket);

    // The receive thread and what it sends on (KVMDataBridge.cpp).
    void KVMDataRecvThread();
    bool ReceiveOnce();
    void PassToFirmware(uint32_t size);
    void WriteWithRetries(uint32_t size);
    void TriggerShutdown(const char* caller);
    bool SendAll(const char* data, size_t size);

    // The end of a session (SessionEnd.cpp).
    void KVMCleanupCommon();
    void DoCleanUp();
    void CloseSockets();
    void JoinRecvThread();
    void StartAgentCleanUp();
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
    std::atomic<uint8_t> m_bShutdownTriggered{0};  // since the listener thread was started
    std::atomic<int> m_agentCleanUps{0};           // how many are running
    // Connections of peers that are not trusted; they stay open until this object ends. Only the listener
    // thread uses it.
    std::vector<SOCKET> m_untrustedSockets;

    std::atomic<uint8_t> m_bSessionActive{0};
    std::atomic<SOCKET> m_clientSocket{INVALID_SOCKET};
    std::mutex m_recvThreadMutex;  // guards the owning pointer
    std::unique_ptr<std::thread> m_pRecvThreadObj;
    std::mutex m_replacedMutex;
    std::vector<SOCKET> m_replacedSockets;
    // Holds one receive, and the NUL that is stored behind it. Only the receive thread uses it.
    std::array<char, kReceiveSize + 1> m_recvBuffer{};
};
