// One connection to the simulated firmware, and the frames on it.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <span>
#include <vector>

#include "driver/gate/FrameInput.h"
#include "firmware/link/LinkProtocol.h"
#include "base/Handles.h"

class FirmwareConnection {
  public:
    FirmwareConnection();
    ~FirmwareConnection();
    FirmwareConnection(const FirmwareConnection&) = delete;
    FirmwareConnection& operator=(const FirmwareConnection&) = delete;

    // False when the firmware is not there.
    bool Connect(const sockaddr_in& address);

    // `frame` has room for a header ahead of the payload. One thread sends. False when the connection has
    // ended.
    bool Send(mpmlink::Kind kind, uint32_t id, uint32_t code, uint32_t value, std::span<uint8_t> frame);
    bool Send(mpmlink::Kind kind, uint32_t id = 0);

    // Waits for a frame; its payload stands in `buffer` behind `headroom` free bytes. One thread receives.
    // False when the connection has ended, or the frame is too long.
    bool Receive(mpmlink::Header& header, std::vector<uint8_t>& buffer, size_t headroom) {
        return m_input.Next(header, buffer, headroom);
    }

    // Wakes Receive, and ends both directions.
    void Shutdown();

  private:
    DWORD ReceiveSome(std::span<uint8_t> bytes);

    SOCKET m_socket = INVALID_SOCKET;
    FrameInput m_input{[this](std::span<uint8_t> room) { return size_t{ReceiveSome(room)}; }};
    UniqueHandle m_received;
    UniqueHandle m_shutDown;
};
