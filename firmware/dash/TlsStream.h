// The server's end of one TLS connection whose bytes come and go in packets instead of through a socket.
#pragma once

#include <openssl/ssl.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "firmware/dash/Certificate.h"

namespace mpm {

class TlsStream {
  public:
    enum class State {
        Open,    // in the handshake, or after it
        Closed,  // ended in order by either side, or by both
        Failed,  // broken; an alert may stand in the wire bytes
    };

    // The context must outlive the stream.
    explicit TlsStream(SSL_CTX* context);

    // Takes bytes from the client and returns what they say once decrypted. Nothing is taken unless Open.
    std::string Feed(std::span<const uint8_t> wire);
    // Encrypts; only after the handshake, which is over once Feed has returned a byte.
    void Write(std::string_view plain);
    // Ends this side of the connection in order, also after the client has ended its own side. Does nothing
    // on a broken stream.
    void Close();
    // Whether the handshake is over and all that the client has still to receive of it are tickets, which
    // TLS 1.2 sends within the handshake.
    bool OnlyTicketsFollow() const;
    State CurrentState() const { return m_state; }
    // Why it failed, for people.
    const std::string& Reason() const { return m_reason; }
    // The bytes that must go to the client now.
    std::vector<uint8_t> TakeWire();

  private:
    void Fail();

    testbed::TlsPointer m_ssl;
    BIO* m_in;   // owned by m_ssl
    BIO* m_out;  // the same
    State m_state = State::Open;
    std::string m_reason;
};

}  // namespace mpm
