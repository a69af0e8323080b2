// The frames in a stream of bytes from the firmware.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "firmware/link/LinkProtocol.h"

class FrameInput {
  public:
    // Waits for bytes and takes at most as many as there is room for. 0: the stream has ended.
    using ReceiveSome = std::function<size_t(std::span<uint8_t> room)>;
    explicit FrameInput(ReceiveSome receive) : m_receive(std::move(receive)) {}

    // Waits for a frame; its payload stands in `buffer` behind `headroom` free bytes. False when the stream
    // has ended, or the frame is too long; nothing is to be taken from it any more then.
    bool Next(mpmlink::Header& header, std::vector<uint8_t>& buffer, size_t headroom);

  private:
    bool ReceiveAll(std::span<uint8_t> bytes);

    const ReceiveSome m_receive;
};
