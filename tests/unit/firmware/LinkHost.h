// The host side of the mailbox link for tests of the firmware: one connection, driven step by step.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "testbed/Descriptor.h"
#include "firmware/Firmware.h"
#include "firmware/link/LinkMemory.h"
#include "firmware/link/LinkProtocol.h"
#include "testbed/SharedMemory.h"

namespace mpm::test {

inline constexpr std::chrono::milliseconds kSoon{200};  // for what must not happen

// A mailbox address of this test's own, in the build's scratch folder.
std::string FreshAddress();

struct ListeningFirmware : Firmware {
    explicit ListeningFirmware(Settings settings = {}) : Firmware(std::move(settings)) {
        Listen(FreshAddress());
    }
};

class LinkHost {
  public:
    struct Response {
        uint32_t error;
        std::vector<uint8_t> output;
    };

    struct Frame {
        mpmlink::Header header{};
        std::vector<uint8_t> payload;
    };

    explicit LinkHost(const std::string& address);

    // Sends a request and waits for its answer.
    Response Ask(uint32_t code, Bytes input = {}, uint32_t room = 0);
    // Sends a request and returns its id.
    uint32_t Post(uint32_t code, Bytes input = {}, uint32_t room = 0);
    std::optional<Response> AwaitResponse(uint32_t id, std::chrono::milliseconds patience = kPatience);
    void Cancel(uint32_t id);
    void Listen();
    // The next message, trailer included.
    std::optional<std::vector<uint8_t>> AwaitMessage(std::chrono::milliseconds patience = kPatience);
    // Listens, and offers the file as memory.
    void OfferMemory(const testbed::Descriptor& file);
    // The next message as it came. Throws when there is none.
    Frame AwaitFrame();
    void SendBytes(std::span<const uint8_t> bytes);
    bool AwaitClosed(std::chrono::milliseconds patience = kPatience);
    void Close() { m_socket.Close(); }

  private:
    enum class Got { Something, Nothing, End };
    void SendFrame(const mpmlink::Header& header, std::span<const uint8_t> payload);
    Got Receive(std::chrono::steady_clock::time_point deadline);

    testbed::Descriptor m_socket;
    uint32_t m_lastId = 0;
    std::vector<uint8_t> m_input;
    std::map<uint32_t, Response> m_responses;
    std::deque<Frame> m_messages;
};

// The payload of a message that carries this command; fails the test when it carries another.
std::string PayloadOf(const std::optional<std::vector<uint8_t>>& message, uint8_t command);

}  // namespace mpm::test
