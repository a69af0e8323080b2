#include "firmware/dash/Wsman.h"

#include <strings.h>

#include <cstring>

#include "firmware/dash/RequestHeaders.h"

namespace mpm {

namespace {

constexpr const char* kPath = "/wsman";
constexpr const char* kAnonymousPath = "/wsman-anon/identify";  // for Identify alone
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

pugi::xml_node FirstElement(pugi::xml_node parent) {
    pugi::xml_node first = parent.first_child();
    while (first && first.type() != pugi::node_element)
        first = first.next_sibling();
    return first;
}

}  // namespace

void Wsman::Offer(const std::string& key, Operation operation, Access access) {
    m_operations[key] = {std::move(operation), access};
}

HttpResponse Wsman::Handle(const HttpRequest& request) const {
    const std::string path = request.target.substr(0, request.target.find('?'));
    if (path != kPath && path != kAnonymousPath) return {404, {}, {}, {}};
    if (request.method != "POST") return {405, {}, {}, "Allow: POST\r\n"};
    if (!IsSoap(request.contentType)) return {415, {}, {}, {}};
    if (path == kAnonymousPath) return HandleEnvelope(request.body, Access::Free);
    if (m_guard && !IsFree(request.body))
        if (std::optional<HttpResponse> refusal = m_guard(request)) return *std::move(refusal);
    return HandleEnvelope(request.body, Access::Guarded);
}

const Wsman::Offered* Wsman::Find(const SoapMessage& message) const {
    const std::string action = message.Addressing("Action");
    const std::string key = action.empty() ? QualifiedName(FirstElement(message.Body())) : action;
    const auto found = m_operations.find(key);
    if (found != m_operations.end()) return &found->second;
    // An action of a class has the class's name in it.
    if (strncasecmp(key.c_str(), ns::kCim, std::strlen(ns::kCim)) != 0) return nullptr;
    for (const auto& [name, offered] : m_operations)
        if (strcasecmp(name.c_str(), key.c_str()) == 0) return &offered;
    return nullptr;
}

bool Wsman::IsFree(const std::string& text) const {
    try {
        const Offered* asked = Find(SoapMessage(text));
        return asked && asked->access == Access::Free;
    } catch (const SoapFault&) {
        return false;  // a client that is not known does not learn what is wrong with its message
    }
}

HttpResponse Wsman::HandleEnvelope(const std::string& text, Access least) const {
    std::string messageId;
    try {
        const SoapMessage message(text);
        messageId = message.Addressing("MessageID");
        return Soap(200, Answer(message, least));
    } catch (const SoapFault& fault) {
        return Soap(StatusOf(fault), FaultText(fault, messageId));
    }
}

std::string Wsman::Answer(const SoapMessage& message, Access least) const {
    CheckUnderstood(message);
    const std::string action = message.Addressing("Action");
    const Offered* asked = Find(message);
    if (asked && least == Access::Free && asked->access != Access::Free) asked = nullptr;
    if (!asked && action.empty())
        throw SoapFault("s:Sender", "wsa:MessageInformationHeaderRequired",
                        "The header wsa:Action is missing.");
    if (!asked)
        throw SoapFault("s:Sender", "wsa:ActionNotSupported", "The action is not supported: " + action);
    // Identify alone has no action, and so none of the headers that belong to one.
    if (!action.empty()) CheckFeatures(message);
    const std::optional<size_t> limit = MaxEnvelopeOf(message);
    SoapAnswer answer;
    asked->run(message, answer);
    std::string text = answer.Text();
    if (limit && text.size() > *limit)
        throw SoapFault("s:Sender", "wsman:EncodingLimit", "The answer exceeds MaxEnvelopeSize.",
                        "MaxEnvelopeSizeExceeded");
    return text;
}

void OfferIdentify(Wsman& wsman, std::function<Identity()> identity) {
    const auto answerIdentify = [identity = std::move(identity)](const SoapMessage&, SoapAnswer& answer) {
        const Identity values = identity();
        answer.Envelope().append_attribute("xmlns:wsmid") = ns::kIdentity;
        pugi::xml_node body = answer.Body().append_child("wsmid:IdentifyResponse");
        AppendText(body, "wsmid:ProtocolVersion", ns::kManagement);
        AppendText(body, "wsmid:ProductVendor", values.productVendor);
        AppendText(body, "wsmid:ProductVersion", values.productVersion);
        AppendText(body, "dash:DASHVersion", values.dashVersion).append_attribute("xmlns:dash") = ns::kDash;
    };
    wsman.Offer("{" + std::string(ns::kIdentity) + "}Identify", answerIdentify, Wsman::Access::Free);
}

}  // namespace mpm
