// A byte bridge from one connection that the host forwards to a real server.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "firmware/EventLoop.h"
#include "firmware/PacedSender.h"
#include "firmware/StreamPeer.h"

namespace mpm {

class Bridge : public StreamPeer {
  public:
    // `server` is "host:port". What the server says leaves through `send`. `ended` is called once, with the
    // reason, when the server has closed or cannot be reached and everything before has been sent; nothing is
    // taken afterwards. While `hostIsBehind`, the server is not read.
    Bridge(EventLoop& loop, const std::string& server, std::chrono::milliseconds pause,
           PacedSender::Send send, std::function<bool()> hostIsBehind,
           std::function<void(const std::string&)> ended);
    // The same for a server whose socket is connected already.
    Bridge(EventLoop& loop, testbed::Descriptor server, std::chrono::milliseconds pause,
           PacedSender::Send send, std::function<bool()> hostIsBehind,
           std::function<void(const std::string&)> ended);
    ~Bridge() override;

    void Take(std::span<const uint8_t> bytes) override;
    void HostHasRead() override;

  private:
    // Bytes that wait for the server, and for the host; above that the connection is given up, or not read.
    static constexpr size_t kMaxWaiting = 4u << 20;

    void Connect(const std::string& server);
    void Watch();
    void OnReady(uint32_t events);
    void Read();
    void Write();
    void UpdateEvents();
    void End(const std::string& reason);
    void Drained();

    EventLoop& m_loop;
    PacedSender m_sender;
    const std::function<bool()> m_hostIsBehind;
    const std::function<void(const std::string&)> m_ended;
    testbed::Descriptor m_socket;
    EventLoop::WatchId m_watch = 0;
    std::vector<uint8_t> m_toServer;
    std::string m_reason;  // not empty: the server has gone
    EventLoop::TimerId m_endTimer = 0;
};

}  // namespace mpm
