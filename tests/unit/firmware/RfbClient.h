// A small RFB client: what a viewer says and sees, step by step.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "firmware/Firmware.h"

namespace mpm::test {

class RfbClient {
  public:
    // How bytes go out, and how they come in: `receive` returns an empty vector when nothing comes.
    using Send = std::function<void(std::span<const uint8_t>)>;
    using Receive = std::function<std::vector<uint8_t>()>;
    RfbClient(Send send, Receive receive) : m_send(std::move(send)), m_receive(std::move(receive)) {}

    // The handshake, up to the size of the screen. False when the server does not answer as it should.
    bool Connect();
    // Sixteen bits a pixel, five to six for a colour.
    void TakeSixteenBits();
    void Request(bool incremental);
    // Takes one update of raw rectangles into `pixels`. False when none comes.
    bool TakeUpdate();
    void Key(bool down, uint32_t keysym);
    void Pointer(uint8_t buttons, uint16_t x, uint16_t y);
    void Write(std::initializer_list<uint8_t> bytes) { m_send(std::vector<uint8_t>(bytes)); }

    uint16_t width = 0, height = 0;
    std::string name;
    std::vector<uint8_t> pixels;  // blue, green, red, 255
    size_t rectangles = 0;        // of the last update
    size_t changedPixels = 0;

  private:
    std::vector<uint8_t> Read(size_t size);
    uint32_t Number(size_t bytes);

    const Send m_send;
    const Receive m_receive;
    std::vector<uint8_t> m_input;
    size_t m_pixelSize = 4;
};

}  // namespace mpm::test
