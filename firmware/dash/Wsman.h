// The WS-Management service of the firmware: finds the operation that a request asks for, and answers over
// HTTP.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "firmware/dash/HttpConnection.h"
#include "firmware/dash/Soap.h"

namespace mpm {

class Wsman {
  public:
    // Fills the answer; throws SoapFault to answer with a fault.
    using Operation = std::function<void(const SoapMessage& request, SoapAnswer& answer)>;

    // Decides on a request that is not free; returns the answer to one that may not be carried out.
    using Guard = std::function<std::optional<HttpResponse>(const HttpRequest& request)>;
    void GuardBy(Guard guard) { m_guard = std::move(guard); }

    enum class Access { Guarded, Free };
    // Offers an operation under its wsa:Action, or under the qualified name of the body's first element for
    // requests that have no action. A resource class joins the service by offering its operations here.
    void Offer(const std::string& key, Operation operation, Access access = Access::Guarded);

    HttpResponse Handle(const HttpRequest& request) const;

  private:
    struct Offered {
        Operation run;
        Access access;
    };

    // Carries out only operations of at least this access.
    HttpResponse HandleEnvelope(const std::string& text, Access least) const;
    std::string Answer(const SoapMessage& message, Access least) const;
    const Offered* Find(const SoapMessage& message) const;
    bool IsFree(const std::string& text) const;

    std::map<std::string, Offered> m_operations;
    Guard m_guard;
};

// The fields of the answer to Identify.
struct Identity {
    std::string productVendor, productVersion, dashVersion;
};
void OfferIdentify(Wsman& wsman, std::function<Identity()> identity);

}  // namespace mpm
