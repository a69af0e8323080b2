#include "firmware/dash/Wsman.h"

#include <strings.h>

namespace mpm {

namespace {

constexpr const char* kPath = "/wsman";
constexpr const char* kSoapType = "application/soap+xml";

bool IsSoap(const std::string& contentType) {
    const std::string type = contentType.substr(0, contentType.find(';'));
    const size_t end = type.find_last_not_of(" \t");
    return end != std::string::npos && strcasecmp(type.substr(0, end + 1).c_str(), kSoapType) == 0;
}

HttpResponse Soap(int status, std::string body) {
    return {status, std::string(kSoapType) + ";charset=UTF-8", std::move(body), {}};
}

int StatusOf(const SoapFault& fault) {
    return fault.code == "s:Sender" ? 400 : 500;
}

// Headers of WS-Addressing and WS-Management are understood as far as an operation looks at them.
void CheckMustUnderstand(const SoapMessage& message) {
    for (const pugi::xml_node header : message.Header().children()) {
        const std::string name = QualifiedName(header);
        if (name.starts_with("{" + std::string(ns::kAddressing) + "}") ||
            name.starts_with("{" + std::string(ns::kManagement) + "}"))
            continue;
        for (const pugi::xml_attribute attribute : header.attributes())
            if (std::string(attribute.name()).ends_with(":mustUnderstand") && attribute.as_bool())
                throw SoapFault("s:MustUnderstand", "", "The header " + name + " is not understood.");
    }
}

}  // namespace

void Wsman::Offer(const std::string& key, Operation operation, Access access) {
    m_operations[key] = {std::move(operation), access};
}

HttpResponse Wsman::Handle(const HttpRequest& request) const {
    if (request.target.substr(0, request.target.find('?')) != kPath) return {404, {}, {}, {}};
    if (request.method != "POST") return {405, {}, {}, "Allow: POST\r\n"};
    if (!IsSoap(request.contentType)) return {415, {}, {}, {}};
    if (m_guard && !IsFree(request.body))
        if (std::optional<HttpResponse> refusal = m_guard(request)) return *std::move(refusal);
    return HandleEnvelope(request.body);
}

const Wsman::Offered* Wsman::Find(const SoapMessage& message) const {
    const std::string action = message.Addressing("Action");
    pugi::xml_node first = message.Body().first_child();
    while (first && first.type() != pugi::node_element)
        first = first.next_sibling();
    const auto found = m_operations.find(action.empty() ? QualifiedName(first) : action);
    return found == m_operations.end() ? nullptr : &found->second;
}

bool Wsman::IsFree(const std::string& text) const {
    try {
        const Offered* asked = Find(SoapMessage(text));
        return asked && asked->access == Access::Free;
    } catch (const SoapFault&) {
        return false;  // a client that is not known does not learn what is wrong with its message
    }
}

HttpResponse Wsman::HandleEnvelope(const std::string& text) const {
    std::string messageId;
    try {
        const SoapMessage message(text);
        messageId = message.Addressing("MessageID");
        CheckMustUnderstand(message);
        const Offered* asked = Find(message);
        if (!asked) {
            const std::string action = message.Addressing("Action");
            if (action.empty())
                throw SoapFault("s:Sender", "wsa:MessageInformationHeaderRequired",
                                "The header wsa:Action is missing.");
            throw SoapFault("s:Sender", "wsa:ActionNotSupported", "The action is not supported: " + action);
        }
        SoapAnswer answer;
        asked->run(message, answer);
        return Soap(200, answer.Text());
    } catch (const SoapFault& fault) {
        return Soap(StatusOf(fault), FaultText(fault, messageId));
    }
}

void OfferIdentify(Wsman& wsman, std::function<Identity()> identity) {
    const auto answerIdentify = [identity = std::move(identity)](const SoapMessage&, SoapAnswer& answer) {
        const Identity told = identity();
        answer.Envelope().append_attribute("xmlns:wsmid") = ns::kIdentity;
        pugi::xml_node body = answer.Body().append_child("wsmid:IdentifyResponse");
        AppendText(body, "wsmid:ProtocolVersion", ns::kManagement);
        AppendText(body, "wsmid:ProductVendor", told.productVendor);
        AppendText(body, "wsmid:ProductVersion", told.productVersion);
        AppendText(body, "dash:DASHVersion", told.dashVersion).append_attribute("xmlns:dash") = ns::kDash;
    };
    wsman.Offer("{" + std::string(ns::kIdentity) + "}Identify", answerIdentify, Wsman::Access::Free);
}

}  // namespace mpm
