#include "driver/gate/FirmwareConnection.h"

#include <algorithm>
#include <array>
#include <cstring>

FirmwareConnection::~FirmwareConnection() {
    if (m_socket != INVALID_SOCKET) closesocket(m_socket);
}

bool FirmwareConnection::Connect(const sockaddr_in& address) {
    m_socket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
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

bool FirmwareConnection::Receive(mpmlink::Header& header, std::vector<uint8_t>& buffer, size_t headroom) {
    if (!ReceiveAll({reinterpret_cast<uint8_t*>(&header), sizeof header})) return false;
    if (header.size > mpmlink::kMaxPayload) return false;
    buffer.resize(headroom + header.size);
    return ReceiveAll(std::span(buffer).subspan(headroom));
}

bool FirmwareConnection::ReceiveAll(std::span<uint8_t> bytes) {
    while (!bytes.empty()) {
        const int received =
            recv(m_socket, reinterpret_cast<char*>(bytes.data()), static_cast<int>(bytes.size()), 0);
        if (received <= 0) return false;
        bytes = bytes.subspan(static_cast<size_t>(received));
    }
    return true;
}

void FirmwareConnection::Shutdown() {
    shutdown(m_socket, SD_BOTH);
}
