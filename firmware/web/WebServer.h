// The page in the browser: serves its files and its WebSockets on the loopback interface, on a thread of its
// own.
#pragma once

#include <memory>
#include <string>

#include "firmware/web/Access.h"
#include "firmware/web/Lab.h"

namespace mpm::web {

struct WebOptions {
    std::string address;  // see LoopbackAddress; empty: no page
    std::string readyFile;
    std::string pc, log;  // the PC's control socket, the service's log
    std::string kvm;      // where the service serves viewers, on the loopback interface
    std::string dash;     // shown only

    // Throws std::invalid_argument.
    void Check() const;
};

class WebServer {
  public:
    // Listens when this returns. Throws std::runtime_error when it cannot.
    WebServer(const WebOptions& options, Firmware& firmware, Lab::Handle handle,
              std::shared_ptr<Inbox> inbox);
    ~WebServer();

    std::string Url() const;

  private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

}  // namespace mpm::web
