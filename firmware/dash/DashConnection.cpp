#include "firmware/dash/DashConnection.h"

#include <algorithm>
#include <utility>

namespace mpm {

namespace {

constexpr uint8_t kTlsHandshake = 0x16;

}  // namespace

DashConnection::DashConnection(SSL_CTX* context, EventLoop& loop, std::chrono::milliseconds pause,
                               PacedSender::Send send, Calls calls)
    : m_context(context),
      m_loop(loop),
      m_pause(pause),
      m_calls(std::move(calls)),
      m_sender(loop, pause, std::move(send)) {
    Begin();
}

DashConnection::~DashConnection() {
    for (const EventLoop::TimerId timer : {m_endTimer, m_ticketTimer})
        if (timer) m_loop.Cancel(timer);
}

void DashConnection::Begin() {
    m_tls.emplace(m_context);
    m_http.emplace(m_calls.handle);
}

void DashConnection::Take(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    m_sender.OnClientBytes();
    m_lastReceived = EventLoop::Clock::now();
    if (!IsTls(bytes)) return EndSoon(End::ByServer);
    // After its orderly end a client may begin again on the same connection.
    if (m_end == End::ByClient && bytes.front() == kTlsHandshake) {
        m_loop.Cancel(std::exchange(m_endTimer, 0));
        m_end = End::None;
        Begin();
    }
    if (m_end != End::None) return;
    Answer(bytes);
}

// What does not even begin as TLS gets no answer, not so much as an alert: its sender does not wait for one.
bool DashConnection::IsTls(std::span<const uint8_t> bytes) {
    if (std::exchange(m_begun, true) || bytes.front() == kTlsHandshake) return true;
    m_calls.note("not TLS: ignored");
    return false;
}

void DashConnection::Answer(std::span<const uint8_t> bytes) {
    const bool inHandshake = !m_tls->OnlyTicketsFollow();
    const std::string answer = m_http->Feed(m_tls->Feed(bytes));
    m_tls->Write(answer);
    const TlsStream::State state = m_tls->CurrentState();
    if (answer.empty() && state == TlsStream::State::Open && MayWait(inHandshake)) return;
    if (m_ticketTimer) m_loop.Cancel(std::exchange(m_ticketTimer, 0));
    // What has not been sent to a client that is about to go waits for the end.
    if (state == TlsStream::State::Closed) return EndSoon(End::ByClient);
    if (state == TlsStream::State::Failed) m_calls.note("TLS: " + m_tls->Reason());
    std::vector<uint8_t> wire = m_tls->TakeWire();
    if (m_http->Ended()) {
        const bool oneSend = wire.size() <= kOneSend;
        m_tls->Close();
        m_lastBytes = m_tls->TakeWire();
        if (oneSend) {
            wire.insert(wire.end(), m_lastBytes.begin(), m_lastBytes.end());
            m_lastBytes.clear();
        }
    }
    m_sender.Append(wire);
    if (m_http->Ended() || state == TlsStream::State::Failed) EndSoon(End::ByServer);
}

// Whether what TLS has to send are tickets, which wait for the first answer.
bool DashConnection::MayWait(bool inHandshake) {
    if (inHandshake && m_tls->OnlyTicketsFollow())
        m_ticketTimer = m_loop.After(kTicketsWait, [this] {
            m_ticketTimer = 0;
            m_sender.Append(m_tls->TakeWire());
        });
    return m_ticketTimer != 0;
}

void DashConnection::EndSoon(End by) {
    if (m_end != End::None) return;
    m_end = by;
    m_endBegan = EventLoop::Clock::now();
    ArmEndTimer();
}

void DashConnection::ArmEndTimer() {
    m_endTimer = m_loop.After(Quiet(), [this] { OnEndTimer(); });
}

std::chrono::milliseconds DashConnection::Quiet() const {
    return m_end == End::ByClient ? std::max(m_pause, kClientsOwnEnd) : m_pause;
}

void DashConnection::OnEndTimer() {
    m_endTimer = 0;
    const auto now = EventLoop::Clock::now();
    const bool quiet = now - m_lastReceived >= Quiet() || now - m_endBegan >= kMaxLinger;
    if (!quiet || !m_sender.Idle()) return ArmEndTimer();
    if (m_end == End::ByClient) {
        m_end = End::ByServer;
        m_tls->Close();
        m_lastBytes = m_tls->TakeWire();
    }
    if (!m_lastBytes.empty()) {
        // The host takes no further message, and so not the end, before it has sent all of the answer.
        m_sender.Append(std::exchange(m_lastBytes, {}));
        return ArmEndTimer();
    }
    m_end = End::Done;
    m_calls.end();
}

}  // namespace mpm
