// Sends a stream of bytes to the host in as few messages as it can, with a pause between them.
//
// The host forwards one payload at a time. Between two sessions it drops one that it has not begun to send
// when the next arrives, and the firmware does not learn of it. A byte from the client is the one sign that
// the host has gone on: the first message after it leaves at once, and further ones wait out the pause.
#pragma once

#include <chrono>
#include <functional>
#include <span>
#include <vector>

#include "firmware/EventLoop.h"

namespace mpm {

class PacedSender {
  public:
    using Send = std::function<void(std::span<const uint8_t>)>;
    // A pause of 0 sends at once.
    PacedSender(EventLoop& loop, std::chrono::milliseconds pause, Send send,
                std::function<void()> drained = nullptr);
    ~PacedSender();

    void OnClientBytes() { m_mayGo = true; }
    void Append(std::span<const uint8_t> bytes);
    // Nothing waits and no pause runs.
    bool Idle() const { return m_waiting.empty() && m_timer == 0; }
    size_t Waiting() const { return m_waiting.size(); }

  private:
    void Go();
    void OnTimer();

    EventLoop& m_loop;
    const std::chrono::milliseconds m_pause;
    const Send m_send;
    const std::function<void()> m_drained;  // all has been sent and the last pause is over
    std::vector<uint8_t> m_waiting;
    bool m_mayGo = true;
    EventLoop::TimerId m_timer = 0;
};

}  // namespace mpm
