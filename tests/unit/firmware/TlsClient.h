// A console's TLS client whose bytes travel in packets: what it sends is taken from it, what it receives is
// given to it.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "testbed/Openssl.h"

namespace mpm::test {

class TlsClient {
  public:
    // Trusts this one certificate (PEM) and expects it to be for localhost.
    explicit TlsClient(const std::string& certificate, int maxVersion = TLS1_3_VERSION);

    // Resumes the session of another client, which has received a ticket. Call it before Connect.
    void Resume(const TlsClient& other);
    bool HasResumed() const;
    bool HasTicket() const;
    // Goes on with the handshake. True once it is over.
    bool Connect();
    void Write(const std::string& plain);
    // What the server has said, as far as it has been given.
    std::string Read();
    // Ends the connection in order.
    void Close();
    bool ServerHasClosed() const { return m_serverHasClosed; }
    std::string VerifyResult() const;
    // The last alert from the server, in words; empty when there was none.
    const std::string& AlertHeard() const { return m_alert; }

    std::vector<uint8_t> TakeWire();
    void GiveWire(const std::string& bytes);

  private:
    testbed::TlsContextPointer m_context;
    testbed::TlsPointer m_ssl;
    BIO* m_in;   // owned by m_ssl
    BIO* m_out;  // the same
    std::string m_alert;
    bool m_serverHasClosed = false;
};

}  // namespace mpm::test
