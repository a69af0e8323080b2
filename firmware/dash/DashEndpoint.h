// What stands behind port 664: WS-Management over HTTP over TLS, spoken in the packets of the mailbox.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "firmware/PacedSender.h"
#include "firmware/StreamPeer.h"
#include "firmware/Settings.h"
#include "firmware/dash/Authentication.h"
#include "firmware/dash/Certificate.h"
#include "firmware/dash/Wsman.h"

namespace mpm {

// One for the firmware. Its certificate is made when it is.
class DashEndpoint {
  public:
    // `settings` is asked for each request.
    explicit DashEndpoint(std::function<const Settings&()> settings);

    std::string CertificatePem() const { return PemOf(m_certificate); }
    Wsman& Service() { return m_wsman; }

    // A new connection whose bytes leave through `send`; `note` receives what people may want to know. `end`
    // is called at most once, when the connection has to be closed and everything before has been sent. The
    // endpoint must outlive the connection.
    std::unique_ptr<StreamPeer> Accept(EventLoop& loop, std::chrono::milliseconds pause,
                                       PacedSender::Send send, std::function<void(const std::string&)> note,
                                       std::function<void()> end);

  private:
    Certificate m_certificate;
    testbed::TlsContextPointer m_context;
    Authentication m_authentication;
    Wsman m_wsman;
};

}  // namespace mpm
