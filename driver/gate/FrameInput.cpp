#include "driver/gate/FrameInput.h"

bool FrameInput::Next(mpmlink::Header& header, std::vector<uint8_t>& buffer, size_t headroom) {
    if (!ReceiveAll({reinterpret_cast<uint8_t*>(&header), sizeof header})) return false;
    if (header.size > mpmlink::kMaxPayload) return false;
    buffer.resize(headroom + header.size);
    return ReceiveAll(std::span(buffer).subspan(headroom));
}

bool FrameInput::ReceiveAll(std::span<uint8_t> bytes) {
    while (!bytes.empty()) {
        const size_t received = m_receive(bytes);
        if (received == 0) return false;
        bytes = bytes.subspan(received);
    }
    return true;
}
