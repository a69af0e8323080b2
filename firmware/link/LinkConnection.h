// One connection of the mailbox link: its socket, the bytes of a frame that is not complete, and what the
// socket has not taken yet.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "firmware/EventLoop.h"
#include "firmware/link/LinkMemory.h"
#include "firmware/link/LinkProtocol.h"
#include "testbed/SharedMemory.h"

namespace mpm {

class LinkServer;

class LinkConnection : public std::enable_shared_from_this<LinkConnection> {
  public:
    LinkConnection(LinkServer& server, uint64_t number, testbed::Descriptor socket);
    ~LinkConnection();
    void Start();
    // Closes at once; what was not sent is lost.
    void Close();

    // The frame leaves behind those before it. `payload` and `trailer` together are header.size bytes.
    void SendFrame(const mpmlink::Header& header, std::span<const uint8_t> payload,
                   std::span<const uint8_t> trailer = {});
    size_t Unsent() const { return m_unsent.size() - m_unsentStart; }
    uint64_t Number() const { return m_number; }

  private:
    void OnReady(uint32_t events);
    void Read();
    void HandleFrames();
    void HandleLargeRequest(mpmlink::Header header, std::span<const uint8_t> payload);
    void Write(const mpmlink::Header& header, std::span<const uint8_t> payload,
               std::span<const uint8_t> trailer);
    void WriteUnsent();
    void UpdateEvents();

    LinkServer& m_server;
    const uint64_t m_number;
    testbed::Descriptor m_socket;
    EventLoop::WatchId m_watch = 0;
    uint32_t m_watchedEvents = 0;
    std::vector<uint8_t> m_input;  // capacity in use; the bytes of [m_inputStart, m_inputEnd) await handling
    size_t m_inputStart = 0, m_inputEnd = 0;
    testbed::SharedMemory<mpmlink::LinkMemory> m_memory;  // that the host has offered
    std::vector<uint8_t> m_unsent;
    size_t m_unsentStart = 0;
};

}  // namespace mpm
