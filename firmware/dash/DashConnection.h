// One connection of a console: TLS, HTTP, and the end of the connection.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "firmware/PacedSender.h"
#include "firmware/StreamPeer.h"
#include "firmware/dash/HttpConnection.h"
#include "firmware/dash/TlsStream.h"

namespace mpm {

class DashConnection : public StreamPeer {
  public:
    struct Calls {
        HttpConnection::Handler handle;
        std::function<void(const std::string&)> note;
        // Called at most once, when the connection has to be closed and everything before has been sent.
        std::function<void()> end;
    };

    // An answer up to this size leaves the host with its first send. A longer one may still be on its way to
    // a slow console when the next message arrives.
    static constexpr size_t kOneSend = 16384;
    // The tickets of TLS 1.3 wait this long for the first answer, to share its message. A client that delays
    // its request until its last bytes are acknowledged (Nagle's algorithm) receives the acknowledgement with
    // the tickets; without them it comes after 40 ms.
    static constexpr std::chrono::milliseconds kTicketsWait{5};
    // A client that ends TLS normally closes the connection itself. The others wait for the firmware's end.
    static constexpr std::chrono::milliseconds kClientsOwnEnd{200};
    // A connection is not closed while its client still sends, because the client would lose the answer; but
    // no longer than this.
    static constexpr std::chrono::milliseconds kMaxLinger{2000};

    // The context must outlive the connection.
    DashConnection(SSL_CTX* context, EventLoop& loop, std::chrono::milliseconds pause, PacedSender::Send send,
                   Calls calls);
    ~DashConnection() override;

    void Take(std::span<const uint8_t> bytes) override;

  private:
    enum class End { None, ByClient, ByServer, Done };

    void Begin();
    bool IsTls(std::span<const uint8_t> bytes);
    void Answer(std::span<const uint8_t> bytes);
    bool MayWait(bool inHandshake);
    void EndSoon(End by);
    void OnEndTimer();
    void ArmEndTimer();
    std::chrono::milliseconds Quiet() const;

    SSL_CTX* const m_context;
    EventLoop& m_loop;
    const std::chrono::milliseconds m_pause;
    const Calls m_calls;
    PacedSender m_sender;
    bool m_begun = false;
    EventLoop::TimerId m_ticketTimer = 0;  // runs while tickets wait
    std::optional<TlsStream> m_tls;
    std::optional<HttpConnection> m_http;

    End m_end = End::None;
    std::vector<uint8_t> m_lastBytes;  // the end of TLS, where it is a message of its own
    EventLoop::Clock::time_point m_lastReceived, m_endBegan;
    EventLoop::TimerId m_endTimer = 0;
};

}  // namespace mpm
