// The firmware's end of the mailbox link: takes connections, cuts them into frames, answers requests, and
// delivers messages in order to the connection that listens. Lives on the event loop's thread.
//
// One read takes all that has arrived, and an answer or message leaves in one write, straight from the
// caller's memory; only what the socket does not take is copied.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "firmware/EventLoop.h"
#include "firmware/link/LinkProtocol.h"

namespace mpm {

class LinkConnection;

// A request on its way. `input` is borrowed for the length of the call.
struct LinkRequest {
    uint64_t connection = 0;
    uint32_t id = 0;
    uint32_t code = 0;
    uint32_t room = 0;
    std::span<const uint8_t> input;
};

class LinkServer {
  public:
    struct Events {
        std::function<void(const LinkRequest&)> request;
        std::function<void(uint64_t connection, uint32_t id)> cancelled;
        std::function<void(uint64_t connection)> closed;
        std::function<void(bool)> listening;                // a host has begun or ceased to take messages
        std::function<void(const std::string&)> complaint;  // a broken frame, a message lost
        std::function<void()> drained;                      // UnreadBytes has come down to kComfortable
    };
    static constexpr size_t kComfortable = 1u << 20;

    LinkServer(EventLoop& loop, Events events);
    ~LinkServer();

    // Returns the address with the real port. Throws std::invalid_argument for what is no address,
    // std::runtime_error when it cannot be had.
    std::string Listen(const std::string& address);
    // Closes the listener and all connections; messages that wait are forgotten.
    void Close();

    // False when the connection has gone.
    bool Answer(const LinkRequest& request, uint32_t error, std::span<const uint8_t> output);
    void Send(std::span<const uint8_t> payload, std::span<const uint8_t> trailer);
    bool Listening() const { return m_listening != 0; }
    // Bytes of messages that the listening host has not taken from its socket yet and the socket did not take
    // either.
    size_t UnreadBytes() const;

  private:
    friend class LinkConnection;
    void Accept();
    void OnFrame(LinkConnection& from, const mpmlink::Header& header, std::span<const uint8_t> payload);
    void StartListening(LinkConnection& connection);
    void Drop(uint64_t connection, const std::string& why);
    void Keep(std::span<const uint8_t> payload, std::span<const uint8_t> trailer);

    EventLoop& m_loop;
    Events m_events;
    testbed::Descriptor m_listener;
    EventLoop::WatchId m_listenerWatch = 0;
    std::string m_unixPath;
    std::map<uint64_t, std::shared_ptr<LinkConnection>> m_connections;
    uint64_t m_nextConnection = 1;
    uint64_t m_listening = 0;  // the connection that takes the messages
    std::deque<std::vector<uint8_t>> m_waiting;
};

}  // namespace mpm
