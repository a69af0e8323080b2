#include "tests/unit/firmware/LinkHost.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "testbed/Sockets.h"

namespace mpm::test {

std::string FreshAddress() {
    static std::atomic<int> count{0};
    return "unix:" + (std::filesystem::temp_directory_path() /
                      ("mpm-" + std::to_string(getpid()) + "-" + std::to_string(++count) + ".sock"))
                         .string();
}

LinkHost::LinkHost(const std::string& address) {
    m_socket = address.starts_with("unix:")
                   ? testbed::ConnectUnix(address.substr(5))
                   : testbed::ConnectTcp(uint16_t(std::stoi(address.substr(address.rfind(':') + 1))));
    if (!m_socket) throw std::runtime_error("no process listens on " + address);
}

LinkHost::Response LinkHost::Ask(uint32_t code, Bytes input, uint32_t room) {
    const auto response = AwaitResponse(Post(code, input, room));
    if (!response) throw std::runtime_error("no answer");
    return *response;
}

uint32_t LinkHost::Post(uint32_t code, Bytes input, uint32_t room) {
    SendFrame({uint32_t(input.size()), mpmlink::Kind::Request, ++m_lastId, code, room}, input);
    return m_lastId;
}

std::optional<LinkHost::Response> LinkHost::AwaitResponse(uint32_t id, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!m_responses.contains(id))
        if (Receive(deadline) != Got::Something) return std::nullopt;
    const Response response = m_responses[id];
    m_responses.erase(id);
    return response;
}

void LinkHost::Cancel(uint32_t id) {
    SendFrame({0, mpmlink::Kind::Cancel, id, 0, 0}, {});
}
void LinkHost::Listen() {
    SendFrame({0, mpmlink::Kind::Listen, 0, 0, 0}, {});
}

std::optional<std::vector<uint8_t>> LinkHost::AwaitMessage(std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (m_messages.empty())
        if (Receive(deadline) != Got::Something) return std::nullopt;
    const auto message = m_messages.front().payload;
    m_messages.pop_front();
    return message;
}

void LinkHost::OfferMemory(const testbed::Descriptor& file) {
    const mpmlink::Header header{0, mpmlink::Kind::Listen, 0, 0, 0};
    if (!testbed::SendWithFile(m_socket, &header, sizeof header, file))
        throw std::runtime_error("the firmware takes nothing");
}

LinkHost::Frame LinkHost::AwaitFrame() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (m_messages.empty())
        if (Receive(deadline) != Got::Something) throw std::runtime_error("no message");
    const Frame frame = m_messages.front();
    m_messages.pop_front();
    return frame;
}

bool LinkHost::AwaitClosed(std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (;;) {
        const Got got = Receive(deadline);
        if (got != Got::Something) return got == Got::End;
    }
}

void LinkHost::SendFrame(const mpmlink::Header& header, std::span<const uint8_t> payload) {
    const auto* begin = reinterpret_cast<const uint8_t*>(&header);
    std::vector<uint8_t> frame(begin, begin + sizeof header);
    frame.insert(frame.end(), payload.begin(), payload.end());
    SendBytes(frame);
}

void LinkHost::SendBytes(std::span<const uint8_t> bytes) {
    testbed::SendAll(m_socket, bytes.data(), bytes.size());
}

LinkHost::Got LinkHost::Receive(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd wait{m_socket.Get(), POLLIN, 0};
    if (poll(&wait, 1, int(std::max<int64_t>(0, left.count()))) <= 0) return Got::Nothing;
    uint8_t block[65536];
    const ssize_t count = recv(m_socket.Get(), block, sizeof block, 0);
    if (count <= 0) return Got::End;
    m_input.insert(m_input.end(), block, block + count);
    mpmlink::Header header;
    size_t start = 0;
    for (; m_input.size() - start >= sizeof header; start += sizeof header + header.size) {
        std::memcpy(&header, m_input.data() + start, sizeof header);
        if (m_input.size() - start - sizeof header < header.size) break;
        const uint8_t* payload = m_input.data() + start + sizeof header;
        const std::vector<uint8_t> bytes(payload, payload + header.size);
        if (header.kind == mpmlink::Kind::Response) m_responses[header.id] = {header.value, bytes};
        if (header.kind == mpmlink::Kind::Message || header.kind == mpmlink::Kind::LargeMessage)
            m_messages.push_back({header, bytes});
    }
    m_input.erase(m_input.begin(), m_input.begin() + ptrdiff_t(start));
    return Got::Something;
}

std::string PayloadOf(const std::optional<std::vector<uint8_t>>& message, uint8_t command) {
    if (!message || message->size() < kMailboxTrailerSize) {
        ADD_FAILURE() << "no message with command " << int(command);
        return {};
    }
    EXPECT_EQ((*message)[message->size() - 2], command);
    return {message->begin(), message->end() - kMailboxTrailerSize};
}

}  // namespace mpm::test
