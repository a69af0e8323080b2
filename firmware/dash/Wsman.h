// The WS-Management service of the firmware: finds the operation that a request asks for, and answers over
// HTTP.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "firmware/dash/HttpConnection.h"
#include "firmware/dash/Soap.h"

namespace mpm {

class Wsman {
  public:
    // Fills the answer; throws SoapFault to answer with a fault.
    using Operation = std::function<void(const SoapMessage& request, SoapAnswer& answer)>;

    // Offers an operation under its wsa:Action, or under the qualified name of the body's first element for
    // requests that have no action. A resource class joins the service by offering its operations here.
    void Offer(const std::string& key, Operation operation);

    HttpResponse Handle(const HttpRequest& request) const;

  private:
    HttpResponse HandleEnvelope(const std::string& text) const;

    std::map<std::string, Operation> m_operations;
};

// What Identify tells.
struct Identity {
    std::string productVendor, productVersion, dashVersion;
};
void OfferIdentify(Wsman& wsman, std::function<Identity()> identity);

}  // namespace mpm
