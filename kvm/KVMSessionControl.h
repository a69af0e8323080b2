// The state of remote KVM, which the firmware controls: it switches the listener on with one command, names
// the peer that it trusts with another, and ends the session with a third.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "dash/SocketServers.h"

// m_kvmState.
inline constexpr uint8_t kKvmNeverEnabled = 0;
inline constexpr uint8_t kKvmEnabled = 1;  // the listener thread is to run
inline constexpr uint8_t kKvmClosing = 2;

// m_kvmSocketState.
inline constexpr uint16_t kKvmNoClient = 0;
inline constexpr uint16_t kKvmClientConnected = 1;
inline constexpr uint16_t kKvmCleanedUp = 2;

class KVMSessionControl {
  public:
    KVMSessionControl() = default;
    ~KVMSessionControl();
    KVMSessionControl(const KVMSessionControl&) = delete;
    KVMSessionControl& operator=(const KVMSessionControl&) = delete;

    // --- firmware commands, on the mailbox read thread ---

    // Starts the listener. While an earlier session's thread has not been taken away by CloseKVMSession,
    // nothing is started. A thread that can't be started throws std::system_error.
    void EnableKVM();
    // The address and the port to trust for one session: 32 bits each, as sockaddr_in has the address. Longer
    // payloads are cut, shorter ones leave the rest as it was.
    void SetKVMIPAndPort(const void* payload, size_t length);
    // Ends the session and waits until its clean-up is over.
    void CloseKVMSession();
    // The session of a host in safe boot: a payload of `size` bytes whose first 32 bits are the state. The
    // end of the session reboots the host.
    void HandleSafebootState(const void* payload, size_t size);

    // --- the session's end from the host's side; any thread ---

    // Makes the listener thread fall through to its clean-up.
    void TriggerKVMShutdown();
    // Once for each session, whoever comes first.
    void DoKVMCleanUp();

    // The end of the process: makes the listener thread end, and waits for it. Any thread but that one.
    void SignalEnd();
    void JoinThread();

    std::atomic<uint8_t> m_kvmState{kKvmNeverEnabled};
    std::atomic<uint16_t> m_kvmSocketState{kKvmNoClient};
    std::atomic<uint8_t> m_bLuxKvmEnabled{0};

    // Every peer passes until the firmware names one. Any thread.
    void ForgetTrustedAddress();

  private:
    // One word, so that both halves change at once. The port is told and never compared.
    struct alignas(uint64_t) TrustedPeer {
        uint32_t m_kvmTrustedIP = 0;  // as in sockaddr_in; 0: every peer passes
        uint32_t m_kvmTrustedPort = 0;
    };

    void ServeKVM();
    void RunServerKVMThread();
    void AwaitEarlierSession();
    bool ServeClients();
    bool BeginSession(SOCKET socket);
    bool IsTrusted(const sockaddr_in& peer) const;
    void SetKVMStatus(bool running);
    void KVMCleanupCommon();
    void StartAgentCleanUp();
    void RemoveAgentLater();

    KvmSocket m_kvmSocket;
    std::mutex m_threadObjectMutex;  // guards the owning pointer
    std::unique_ptr<std::thread> m_pKVMThreadObj;
    std::atomic<TrustedPeer> m_kvmTrusted{TrustedPeer{}};
    std::atomic<uint8_t> m_bShutdownTriggered{0};  // since the listener thread was started
    std::atomic<int> m_agentCleanUps{0};           // under way
    // Of peers that were not trusted: they stay open as long as the process lives. RunServerKVMThread's own.
    std::vector<SOCKET> m_untrustedSockets;
};
