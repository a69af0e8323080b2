#include "firmware/dash/Soap.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace mpm {

namespace {

std::string NamespaceOf(pugi::xml_node element, const std::string& prefix) {
    const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + prefix;
    for (pugi::xml_node scope = element; scope; scope = scope.parent())
        if (const pugi::xml_attribute found = scope.attribute(declaration.c_str())) return found.value();
    return {};
}

int DepthOf(pugi::xml_node root) {
    int depth = 1, deepest = 1;
    for (pugi::xml_node node = root.first_child(); node && deepest <= SoapMessage::kMaxDepth;) {
        deepest = std::max(deepest, depth + 1);
        if (node.first_child()) {
            node = node.first_child();
            ++depth;
            continue;
        }
        while (node != root && !node.next_sibling()) {
            node = node.parent();
            --depth;
        }
        if (node == root) break;
        node = node.next_sibling();
    }
    return deepest;
}

std::string NewMessageId() {
    unsigned char b[16];
    if (RAND_bytes(b, sizeof b) != 1) throw std::runtime_error("no random bytes");
    b[6] = (b[6] & 0x0F) | 0x40;
    b[8] = (b[8] & 0x3F) | 0x80;
    char text[64];
    std::snprintf(text, sizeof text,
                  "uuid:%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", b[0], b[1],
                  b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return text;
}

std::string FaultAction(const SoapFault& fault) {
    if (fault.subcode.starts_with("wsman:")) return "http://schemas.dmtf.org/wbem/wsman/1/wsman/fault";
    if (fault.subcode.starts_with("wsen:")) return std::string(ns::kEnumeration) + "/fault";
    return std::string(ns::kAddressing) + "/fault";
}

constexpr const char* kSchemaFault = "wsman:SchemaValidationError";

}  // namespace

std::string QualifiedName(pugi::xml_node element) {
    const std::string name = element.name();
    const size_t colon = name.find(':');
    const std::string prefix = colon == std::string::npos ? "" : name.substr(0, colon);
    return "{" + NamespaceOf(element, prefix) + "}" + name.substr(colon == std::string::npos ? 0 : colon + 1);
}

pugi::xml_node ChildNamed(pugi::xml_node parent, std::string_view nameSpace, std::string_view name) {
    const std::string wanted = "{" + std::string(nameSpace) + "}" + std::string(name);
    for (const pugi::xml_node child : parent.children())
        if (child.type() == pugi::node_element && QualifiedName(child) == wanted) return child;
    return {};
}

SoapMessage::SoapMessage(const std::string& text) {
    const pugi::xml_parse_result result =
        m_document.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_doctype);
    if (!result) throw SoapFault("s:Sender", kSchemaFault, "The message is not well-formed XML.");
    for (const pugi::xml_node node : m_document.children())
        if (node.type() == pugi::node_doctype)
            throw SoapFault("s:Sender", kSchemaFault, "A document type declaration is not allowed.");
    const pugi::xml_node envelope = m_document.document_element();
    if (DepthOf(envelope) > kMaxDepth)
        throw SoapFault("s:Sender", kSchemaFault, "The message is nested too deeply.");
    const std::string name = QualifiedName(envelope);
    if (name == "{" + std::string(ns::kSoap11) + "}Envelope")
        throw SoapFault("s:VersionMismatch", "", "Only SOAP 1.2 is understood.");
    if (name != "{" + std::string(ns::kSoap) + "}Envelope")
        throw SoapFault("s:Sender", kSchemaFault, "The message is no SOAP envelope.");
    m_header = ChildNamed(envelope, ns::kSoap, "Header");
    m_body = ChildNamed(envelope, ns::kSoap, "Body");
    if (!m_body) throw SoapFault("s:Sender", kSchemaFault, "The envelope has no body.");
}

std::string SoapMessage::Addressing(const char* name) const {
    return ChildNamed(m_header, ns::kAddressing, name).text().get();
}

SoapAnswer::SoapAnswer() {
    pugi::xml_node declaration = m_document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    m_envelope = m_document.append_child("s:Envelope");
    m_envelope.append_attribute("xmlns:s") = ns::kSoap;
    m_header = m_envelope.append_child("s:Header");
    m_body = m_envelope.append_child("s:Body");
}

void SoapAnswer::Address(const std::string& action, const std::string& relatesTo) {
    m_envelope.append_attribute("xmlns:wsa") = ns::kAddressing;
    m_envelope.append_attribute("xmlns:wsman") = ns::kManagement;
    m_envelope.append_attribute("xmlns:wsen") = ns::kEnumeration;
    AppendText(m_header, "wsa:Action", action);
    AppendText(m_header, "wsa:MessageID", NewMessageId());
    AppendText(m_header, "wsa:To", std::string(ns::kAddressing) + "/role/anonymous");
    if (!relatesTo.empty()) AppendText(m_header, "wsa:RelatesTo", relatesTo);
}

void SoapAnswer::Address(const SoapMessage& request) {
    Address(request.Addressing("Action") + "Response", request.Addressing("MessageID"));
}

std::string SoapAnswer::Text() const {
    std::ostringstream text;
    m_document.save(text, "", pugi::format_raw);
    return text.str();
}

pugi::xml_node AppendText(pugi::xml_node parent, const char* name, const std::string& text) {
    pugi::xml_node child = parent.append_child(name);
    child.text().set(text.c_str());
    return child;
}

std::string FaultText(const SoapFault& fault, const std::string& relatesTo) {
    SoapAnswer answer;
    answer.Address(FaultAction(fault), relatesTo);
    pugi::xml_node body = answer.Body().append_child("s:Fault");
    pugi::xml_node code = body.append_child("s:Code");
    AppendText(code, "s:Value", fault.code);
    if (!fault.subcode.empty()) AppendText(code.append_child("s:Subcode"), "s:Value", fault.subcode);
    AppendText(body.append_child("s:Reason"), "s:Text", fault.what()).append_attribute("xml:lang") = "en";
    return answer.Text();
}

}  // namespace mpm
