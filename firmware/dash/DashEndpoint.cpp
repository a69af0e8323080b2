#include "firmware/dash/DashEndpoint.h"

#include <utility>

namespace mpm {

namespace {

constexpr uint8_t kTlsHandshake = 0x16;

class DashConnection : public StreamPeer {
  public:
    DashConnection(SSL_CTX* context, const Wsman& wsman, std::function<void(const std::string&)> note,
                   EventLoop& loop, std::chrono::milliseconds pause, PacedSender::Send send)
        : m_context(context),
          m_wsman(wsman),
          m_note(std::move(note)),
          m_sender(loop, pause, std::move(send)) {
        Begin();
    }

    void Take(std::span<const uint8_t> bytes) override {
        m_sender.HeardFromClient();
        // What does not even begin as TLS gets no answer, not so much as an alert: who sends such bytes does
        // not wait for one, and what is sent to a client that has gone reaches the next.
        if (!std::exchange(m_begun, true) && !bytes.empty() && bytes.front() != kTlsHandshake) {
            m_ignored = true;
            m_note("not TLS: ignored");
        }
        if (m_ignored) return;
        // After an orderly end a client may begin again on the same connection. What follows a broken stream,
        // or the end of one, means nothing.
        const bool again = m_tls->CurrentState() == TlsStream::State::Closed && !bytes.empty() &&
                           bytes.front() == kTlsHandshake;
        if (again) Begin();
        if (m_tls->CurrentState() != TlsStream::State::Open) return;
        const std::string plain = m_tls->Feed(bytes);
        if (m_tls->CurrentState() == TlsStream::State::Failed) m_note("TLS: " + m_tls->Reason());
        m_tls->Write(m_http->Feed(plain));
        if (m_http->Ended()) m_tls->Close();
        m_sender.Append(m_tls->TakeWire());
    }

  private:
    void Begin() {
        m_tls.emplace(m_context);
        m_http.emplace([this](const HttpRequest& request) {
            HttpResponse response = m_wsman.Handle(request);
            m_note(request.method + " " + request.target + " -> " + std::to_string(response.status));
            return response;
        });
    }

    SSL_CTX* const m_context;
    const Wsman& m_wsman;
    const std::function<void(const std::string&)> m_note;
    PacedSender m_sender;
    bool m_begun = false, m_ignored = false;
    std::optional<TlsStream> m_tls;
    std::optional<HttpConnection> m_http;
};

}  // namespace

DashEndpoint::DashEndpoint(std::function<Identity()> identity)
    : m_certificate(MakeCertificate()), m_context(MakeServerContext(m_certificate)) {
    OfferIdentify(m_wsman, std::move(identity));
}

std::unique_ptr<StreamPeer> DashEndpoint::Accept(EventLoop& loop, std::chrono::milliseconds pause,
                                                 PacedSender::Send send,
                                                 std::function<void(const std::string&)> note) {
    return std::make_unique<DashConnection>(m_context.get(), m_wsman, std::move(note), loop, pause,
                                            std::move(send));
}

}  // namespace mpm
