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

// White space as XML has it.
std::string Trimmed(const std::string& text) {
    constexpr const char* kSpace = " \t\r\n";
    const size_t begin = std::min(text.find_first_not_of(kSpace), text.size());
    return text.substr(begin, text.find_last_not_of(kSpace) + 1 - begin);
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

std::string TextIn(pugi::xml_node element) {
    return Trimmed(element.text().get());
}

std::optional<std::string> AttributeIn(pugi::xml_node element, std::string_view nameSpace,
                                       std::string_view name) {
    for (const pugi::xml_attribute attribute : element.attributes()) {
        const std::string_view whole = attribute.name();
        const size_t colon = whole.find(':');
        const bool prefixed = colon != whole.npos;
        if (whole.substr(prefixed ? colon + 1 : 0) != name) continue;
        if ((prefixed ? NamespaceOf(element, std::string(whole.substr(0, colon))) : "") == nameSpace)
            return Trimmed(attribute.value());
    }
    return std::nullopt;
}

std::string NewUuid() {
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
    return TextIn(ChildNamed(m_header, ns::kAddressing, name));
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
    AppendText(m_header, "wsa:MessageID", NewUuid());
    AppendText(m_header, "wsa:To", kAnonymous);
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
    if (!fault.notUnderstood.empty()) {
        const size_t end = fault.notUnderstood.find('}');
        pugi::xml_node header = answer.Header().append_child("s:NotUnderstood");
        const std::string nameSpace = fault.notUnderstood.substr(1, end - 1);
        if (!nameSpace.empty()) header.append_attribute("xmlns:h") = nameSpace.c_str();
        header.append_attribute("qname") =
            ((nameSpace.empty() ? "" : "h:") + fault.notUnderstood.substr(end + 1)).c_str();
    }
    pugi::xml_node body = answer.Body().append_child("s:Fault");
    pugi::xml_node code = body.append_child("s:Code");
    AppendText(code, "s:Value", fault.code);
    if (!fault.subcode.empty()) AppendText(code.append_child("s:Subcode"), "s:Value", fault.subcode);
    AppendText(body.append_child("s:Reason"), "s:Text", fault.what()).append_attribute("xml:lang") = "en";
    if (!fault.detail.empty())
        AppendText(body.append_child("s:Detail"), "wsman:FaultDetail",
                   "http://schemas.dmtf.org/wbem/wsman/1/wsman/faultDetail/" + fault.detail);
    return answer.Text();
}

}  // namespace mpm
