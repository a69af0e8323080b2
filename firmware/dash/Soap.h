// SOAP 1.2 envelopes as WS-Management uses them: reading a request with its namespaces, and making answers
// and faults.
#pragma once

#include <pugixml.hpp>

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace mpm {

namespace ns {
inline constexpr const char* kSoap = "http://www.w3.org/2003/05/soap-envelope";
inline constexpr const char* kSoap11 = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr const char* kAddressing = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr const char* kTransfer = "http://schemas.xmlsoap.org/ws/2004/09/transfer";
inline constexpr const char* kEnumeration = "http://schemas.xmlsoap.org/ws/2004/09/enumeration";
// Ahead of the name of a class.
inline constexpr const char* kCim = "http://schemas.dmtf.org/wbem/wscim/1/cim-schema/2/";
inline constexpr const char* kManagement = "http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd";
inline constexpr const char* kIdentity = "http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd";
inline constexpr const char* kDash = "http://schemas.dmtf.org/wbem/dash/1/dash.xsd";
}  // namespace ns

// The address of a client that receives its answers over the connection of the request.
inline constexpr const char* kAnonymous = "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";

// What an operation throws to answer with a fault instead.
struct SoapFault : std::runtime_error {
    SoapFault(std::string code, std::string subcode, const std::string& reason, std::string detail = {})
        : runtime_error(reason),
          code(std::move(code)),
          subcode(std::move(subcode)),
          detail(std::move(detail)) {}
    std::string code;           // "s:Sender", "s:Receiver", "s:MustUnderstand" or "s:VersionMismatch"
    std::string subcode;        // such as "wsa:ActionNotSupported"; may be empty
    std::string detail;         // the last part of a fault detail's URI, such as "Locale"; may be empty
    std::string notUnderstood;  // the qualified name of a header, for "s:MustUnderstand"
};

// The name of an element as "{namespace}name". Prefixes are looked up at most kMaxDepth levels up.
std::string QualifiedName(pugi::xml_node element);
// The first child element of this qualified name; a null node when there is none.
pugi::xml_node ChildNamed(pugi::xml_node parent, std::string_view nameSpace, std::string_view name);

// The text of an element without white space around it; most values of the schemas allow it there.
std::string TextIn(pugi::xml_node element);
// An attribute of this namespace ("" for an attribute without prefix), without white space around it.
std::optional<std::string> AttributeIn(pugi::xml_node element, std::string_view nameSpace,
                                       std::string_view name);
// "uuid:..."
std::string NewUuid();

// A request. The nodes belong to the document inside.
class SoapMessage {
  public:
    static constexpr int kMaxDepth = 64;

    // Throws SoapFault when the text is no SOAP 1.2 envelope.
    explicit SoapMessage(const std::string& text);

    pugi::xml_node Header() const { return m_header; }  // null when there is none
    pugi::xml_node Body() const { return m_body; }
    // The text of a header of WS-Addressing ("Action", "MessageID"); empty when there is none.
    std::string Addressing(const char* name) const;

  private:
    pugi::xml_document m_document;
    pugi::xml_node m_header, m_body;
};

// An answer: fill Header and Body, then take the text.
class SoapAnswer {
  public:
    SoapAnswer();
    pugi::xml_node Envelope() { return m_envelope; }
    pugi::xml_node Header() { return m_header; }
    pugi::xml_node Body() { return m_body; }
    std::string Text() const;
    // Gives it the headers and namespaces of WS-Addressing. `relatesTo`: the MessageID of the request; may be
    // empty.
    void Address(const std::string& action, const std::string& relatesTo);
    // The same as the response to this request.
    void Address(const SoapMessage& request);

  private:
    pugi::xml_document m_document;
    pugi::xml_node m_envelope, m_header, m_body;
};

pugi::xml_node AppendText(pugi::xml_node parent, const char* name, const std::string& text);
// `relatesTo`: the MessageID of the request; may be empty.
std::string FaultText(const SoapFault& fault, const std::string& relatesTo);

}  // namespace mpm
