#include "driver/gate/FirmwareConnection.h"

#include <algorithm>
#include <array>
#include <cstring>

FirmwareConnection::FirmwareConnection()
    : m_received(CreateEventA(nullptr, TRUE, FALSE, nullptr)),
      m_shutDown(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

FirmwareConnection::~FirmwareConnection() {
    if (m_socket != INVALID_SOCKET) closesocket(m_socket);
}

bool FirmwareConnection::Connect(const sockaddr_in& address) {
    m_socket = WSASocketA(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED);
    if (m_socket == INVALID_SOCKET) return false;
    const DWORD on = 1;
    setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
    return connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool FirmwareConnection::Send(mpmlink::Kind kind, uint32_t id, uint32_t code, uint32_t value,
                              std::span<uint8_t> frame) {
    const mpmlink::Header header{static_cast<uint32_t>(frame.size() - sizeof header), kind, id, code, value};
    std::memcpy(frame.data(), &header, sizeof header);
    while (!frame.empty()) {
        const int sent =
            send(m_socket, reinterpret_cast<const char*>(frame.data()), static_cast<int>(frame.size()), 0);
        if (sent <= 0) return false;
        frame = frame.subspan(static_cast<size_t>(sent));
    }
    return true;
}

bool FirmwareConnection::Send(mpmlink::Kind kind, uint32_t id) {
    std::array<uint8_t, sizeof(mpmlink::Header)> frame;
    return Send(kind, id, 0, 0, frame);
}

DWORD FirmwareConnection::ReceiveSome(std::span<uint8_t> bytes) {
    WSABUF buffer{static_cast<ULONG>(bytes.size()), reinterpret_cast<char*>(bytes.data())};
    WSAOVERLAPPED overlapped{};
    overlapped.hEvent = m_received.Get();
    DWORD flags = 0;
    if (WSARecv(m_socket, &buffer, 1, nullptr, &flags, &overlapped, nullptr) != 0 &&
        WSAGetLastError() != WSA_IO_PENDING)
        return 0;
    const HANDLE ends[] = {m_received.Get(), m_shutDown.Get()};
    if (WaitForMultipleObjects(2, ends, FALSE, INFINITE) != WAIT_OBJECT_0)
        CancelIoEx(reinterpret_cast<HANDLE>(m_socket), &overlapped);
    DWORD received = 0;
    return WSAGetOverlappedResult(m_socket, &overlapped, &received, TRUE, &flags) ? received : 0;
}

// A shutdown of the socket alone would leave a pending receive to the peer's close.
void FirmwareConnection::Shutdown() {
    shutdown(m_socket, SD_BOTH);
    SetEvent(m_shutDown.Get());
}
