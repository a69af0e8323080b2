#include "firmware/PacedSender.h"

#include <algorithm>
#include <utility>

#include "firmware/Firmware.h"

namespace mpm {

PacedSender::PacedSender(EventLoop& loop, std::chrono::milliseconds pause, Send send,
                         std::function<void()> drained)
    : m_loop(loop), m_pause(pause), m_send(std::move(send)), m_drained(std::move(drained)) {}

PacedSender::~PacedSender() {
    if (m_timer) m_loop.Cancel(m_timer);
}

void PacedSender::Append(std::span<const uint8_t> bytes) {
    m_waiting.insert(m_waiting.end(), bytes.begin(), bytes.end());
    if (m_mayGo) Go();
}

void PacedSender::Go() {
    while (m_mayGo && !m_waiting.empty()) {
        const auto size = ptrdiff_t(std::min(m_waiting.size(), kMaxMessagePayload));
        const std::vector<uint8_t> message(m_waiting.begin(), m_waiting.begin() + size);
        m_waiting.erase(m_waiting.begin(), m_waiting.begin() + size);
        m_mayGo = m_pause.count() == 0;
        if (m_timer) m_loop.Cancel(m_timer);
        m_timer = m_loop.After(m_pause, [this] { OnTimer(); });
        m_send(message);
    }
}

void PacedSender::OnTimer() {
    m_timer = 0;
    m_mayGo = true;
    if (m_waiting.empty() && m_drained) return m_drained();
    Go();
}

}  // namespace mpm
