// Transfers the bytes of a session in both directions.
#include <cstring>

#include "base/Log.h"
#include "kvm/KVMClientInterface.h"
#include "kvm/SocketWait.h"
#include "mailbox/FirmwareLevels.h"
#include "state/ServiceState.h"

namespace {

constexpr const char* kReceiver = "KVMDataRecvThread";
constexpr const char* kSender = "SendDataToKVMClient";
constexpr uint32_t kRetryStatus = 1450;
constexpr int kMaxRetries = 600;
constexpr size_t kMaxAttempts = 100;
// How long the receive thread stays with a socket that a new client has replaced.
constexpr DWORD kReplacementPoll = 50;  // milliseconds

bool IsTransient(int error) {
    return error == WSAEWOULDBLOCK || error == WSAEINTR;
}

}  // namespace

void KVMClientInterface::KVMDataRecvThread() {
    while (m_bSessionActive && ReceiveOnce()) {
    }
    // When the session has already ended, this thread must not trigger a second shutdown.
    if (m_bSessionActive) TriggerShutdown(kReceiver);
    LogInfo("%s: Exiting Thread Handler", kReceiver);
}

// Receives once from the client's socket. A new client may replace the socket at any time; bytes and the end
// of a replaced connection count for nothing. Returns false when the connection has ended.
bool KVMClientInterface::ReceiveOnce() {
    const SOCKET socket = m_clientSocket;
    if (AwaitReadable(socket, kReplacementPoll) == SocketState::Quiet || m_clientSocket != socket)
        return true;
    const int received = recv(socket, m_recvBuffer.data(), kReceiveSize, 0);
    const int error = received < 0 ? WSAGetLastError() : 0;
    const bool isReplaced = m_clientSocket != socket;
    if (received > 0) {
        m_recvBuffer.at(received) = 0;
        if (!m_bSessionActive) return false;
        if (!isReplaced) PassToFirmware(static_cast<uint32_t>(received));
        std::memset(m_recvBuffer.data(), 0, received);
        return true;
    }
    if (isReplaced) return true;
    if (received == 0) {
        LogInfo("%s, Client closed the connection. Socket address: %I64x", kReceiver, socket);
        return false;
    }
    if (IsTransient(error)) {
        LogWarn("%s: recv() failed with error WSAEWOULDBLOCK, retrying to read data on the socket",
                kReceiver);
        Sleep(0);
        return true;
    }
    if (error != 0) {
        LogError("%s: recv() failed with error: %d", kReceiver, error);
        m_recvBuffer.fill(0);
    }
    return false;
}

// A block that the firmware rejects is dropped, which leaves a gap in the stream.
void KVMClientInterface::PassToFirmware(uint32_t size) {
    if (g_pServiceState->m_vorkVersion >= FirmwareLevel::KvmRetries) return WriteWithRetries(size);
    const KvmPacket packet{m_clientSocket, m_recvBuffer.data(), size, nullptr, 0};
    if (m_bSessionActive) g_pServiceState->m_mailBoxDriverInterface.WriteKVMPacket(&packet);
}

// Retries without a delay. The time that the firmware takes to reject a block is the only pacing.
void KVMClientInterface::WriteWithRetries(uint32_t size) {
    const KvmPacket packet{m_clientSocket, m_recvBuffer.data(), size, nullptr, 0};
    for (int attempt = 0; attempt <= kMaxRetries; ++attempt) {
        if (attempt > 0) LogWarn("Re-attempting passing recv buffer. Re-attempt: %d", attempt);
        if (!m_bSessionActive) return;
        const uint32_t error = g_pServiceState->m_mailBoxDriverInterface.WriteKVMPacket(&packet);
        if (error == ERROR_SUCCESS) return;
        LogWarn("Return code for KVM write packet: %d (Expecting %d (ERROR_RETRY) for buffer retry)", error,
                kRetryStatus);
        if (error != kRetryStatus) return;
    }
}

void KVMClientInterface::SendDataToKVMClient(const void* data, size_t size) {
    LogInfo("%s: sending packet of size %zd to KVM client", kSender, size);
    if (m_clientSocket == INVALID_SOCKET) {
        LogInfo("%s: Socket is closed", kSender);
        return;
    }
    if (m_kvmSocketState != kKvmClientConnected) {
        LogInfo("%s: Socket status is not initiated, so return", kSender);
        return;
    }
    if (!SendAll(static_cast<const char*>(data), size)) {
        LogInfo("%s: socket write crossed %zu attempts; socket address %I64x", kSender, kMaxAttempts,
                m_clientSocket.load());
        TriggerShutdown(kSender);
    }
}

// Returns false when the socket has accepted no bytes for too many attempts. A hard error still returns true:
// the receive thread detects the same broken connection and ends the session.
bool KVMClientInterface::SendAll(const char* data, size_t size) {
    size_t offset = 0;
    size_t count = 0;
    while (m_bSessionActive) {
        const int sent = send(m_clientSocket, data + offset, static_cast<int>(size - offset), 0);
        if (sent < 0) {
            const int error = WSAGetLastError();
            if (!IsTransient(error)) {
                LogError("%s: send() failed with error: %d", kSender, error);
                break;
            }
            LogWarn("%s: send() failed with error WSAEWOULDBLOCK, retyring...", kSender);
        } else if (sent == 0) {
            if (++count > kMaxAttempts) {
                LogError("%s: Error condition hit (count > maxAttempts)", kSender);
                return false;
            }
            LogInfo("%s: Retry Count value: %zu. GetLastError: %d", kSender, count, GetLastError());
        } else {
            count = 0;
            offset += sent;
            if (offset == size) {
                LogInfo("%s: KVM data sent: %d (0x%x)", kSender, offset, offset);
                break;
            }
        }
    }
    return true;
}

void KVMClientInterface::TriggerShutdown(const char* caller) {
    LogInfo("%s: Trigger KVM shutdown", caller);
    TriggerKVMShutdown();
}
