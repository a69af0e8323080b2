// The KVM session itself: one client's socket, the bytes between it and the firmware, and the agent that
// serves it at the desktop. The stream is opaque: nothing is added, one recv() gives one request to the
// mailbox.
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

#include "kvm/KVMAgent.h"

class KVMClientInterface {
  public:
    KVMClientInterface() = default;
    ~KVMClientInterface();
    KVMClientInterface(const KVMClientInterface&) = delete;
    KVMClientInterface& operator=(const KVMClientInterface&) = delete;

    // Makes the socket the session's, and starts the agent. In a running session it takes the place of the
    // socket before, which stays open until the session ends. False when the agent can't be started.
    // RunServerKVMThread.
    bool DoInitKVM(SOCKET socket);

    // Starts the thread that carries the client's bytes to the firmware, unless it runs. RunServerKVMThread.
    void StartDataRecvThread();

    // Sends `size` bytes of the firmware's to the client, and returns when the last of them is out or the
    // session has failed: a client that doesn't read holds up the caller. The mailbox read thread.
    void SendDataToKVMClient(const void* data, size_t size);

    // Ends the session: asks the agent to leave, closes the socket, waits for the receive thread. Any thread
    // but that one.
    void DoCleanUp();

    KVMAgent m_agent;

  private:
    void KVMDataRecvThread();
    bool ReceiveOnce();
    void PassToFirmware(uint32_t size);
    void WriteWithRetries(uint32_t size);
    void TriggerShutdown(const char* caller);
    bool SendAll(const char* data, size_t size);
    void CloseSockets();
    void JoinRecvThread();

    static constexpr int kReceiveSize = 0x20000;

    std::atomic<uint8_t> m_bSessionActive{0};
    std::atomic<SOCKET> m_clientSocket{INVALID_SOCKET};
    std::mutex m_recvThreadMutex;  // guards the owning pointer
    std::unique_ptr<std::thread> m_pRecvThreadObj;
    std::mutex m_replacedMutex;
    std::vector<SOCKET> m_replacedSockets;
    // One receive, and the NUL that is stored behind it. The receive thread's own.
    std::array<char, kReceiveSize + 1> m_recvBuffer{};
};
