#include "firmware/dash/RequestHeaders.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace mpm {

namespace {

constexpr const char* kSender = "s:Sender";
constexpr const char* kUnsupported = "wsman:UnsupportedFeature";
constexpr const char* kSchema = "wsman:SchemaValidationError";

constexpr const char* kAddressingHeaders[] = {"Action",  "To",   "MessageID", "ReplyTo",
                                              "FaultTo", "From", "RelatesTo"};
constexpr const char* kManagementHeaders[] = {"ResourceURI",     "SelectorSet", "OperationTimeout",
                                              "MaxEnvelopeSize", "Locale",      "OptionSet",
                                              "FragmentTransfer"};

std::string In(const char* nameSpace, const std::string& name) {
    return "{" + std::string(nameSpace) + "}" + name;
}

template <size_t Count>
bool IsOneOf(const std::string& name, const char* nameSpace, const char* const (&names)[Count]) {
    return std::any_of(std::begin(names), std::end(names),
                       [&](const char* each) { return name == In(nameSpace, each); });
}

bool IsKnown(const std::string& name) {
    return IsOneOf(name, ns::kAddressing, kAddressingHeaders) ||
           IsOneOf(name, ns::kManagement, kManagementHeaders);
}

bool IsForThisNode(pugi::xml_node header) {
    const std::string role = AttributeIn(header, ns::kSoap, "role").value_or("");
    const std::string roles = std::string(ns::kSoap) + "/role/";
    return role.empty() || role == roles + "next" || role == roles + "ultimateReceiver";
}

bool IsTrue(pugi::xml_node element, const char* nameSpace, const char* attribute) {
    const std::string value = AttributeIn(element, nameSpace, attribute).value_or("false");
    if (value == "true" || value == "1") return true;
    if (value == "false" || value == "0") return false;
    throw SoapFault(kSender, kSchema, std::string(attribute) + " is neither true nor false: " + value);
}

bool MustUnderstand(pugi::xml_node header) {
    return IsTrue(header, ns::kSoap, "mustUnderstand");
}

// A header of WS-Management that is for this node; a null node when there is none.
pugi::xml_node Management(const SoapMessage& request, const char* name) {
    const pugi::xml_node header = ChildNamed(request.Header(), ns::kManagement, name);
    return IsForThisNode(header) ? header : pugi::xml_node();
}

void CheckReply(const SoapMessage& request, const char* name) {
    const pugi::xml_node to = ChildNamed(request.Header(), ns::kAddressing, name);
    if (to && TextIn(ChildNamed(to, ns::kAddressing, "Address")) != kAnonymous)
        throw SoapFault(
            kSender, kUnsupported,
            std::string("Answers go over the connection of the request; ") + name + " names another address.",
            "AddressingMode");
}

void CheckTimeout(pugi::xml_node header) {
    if (!header) return;
    static const std::regex duration(
        R"((-?)P(?=[0-9T])([0-9]+Y)?([0-9]+M)?([0-9]+D)?(T(?=[0-9])([0-9]+H)?([0-9]+M)?([0-9]+(\.[0-9]+)?S)?)?)");
    const std::string text = TextIn(header);
    std::smatch parts;
    constexpr size_t kLongest = 64;
    if (text.size() > kLongest || !std::regex_match(text, parts, duration))
        throw SoapFault(kSender, kSchema, "OperationTimeout is no duration.");
    if (parts[1].length() != 0 || text.find_first_of("123456789") == std::string::npos)
        throw SoapFault(kSender, kUnsupported, "OperationTimeout leaves no time.", "OperationTimeout");
}

void CheckLocale(pugi::xml_node header) {
    if (!header || !MustUnderstand(header)) return;
    const std::string language = header.attribute("xml:lang").value();
    if (strncasecmp(language.c_str(), "en", 2) != 0 || (language.size() > 2 && language[2] != '-'))
        throw SoapFault(kSender, kUnsupported, "Texts are in English only.", "Locale");
}

void CheckOptions(pugi::xml_node header) {
    for (const pugi::xml_node option : header.children())
        if (option.type() == pugi::node_element && QualifiedName(option) == In(ns::kManagement, "Option") &&
            IsTrue(option, "", "MustComply"))
            throw SoapFault(kSender, "wsman:InvalidOptions",
                            std::string("There is no option ") + option.attribute("Name").value() + ".",
                            "NotSupported");
}

}  // namespace

void CheckUnderstood(const SoapMessage& request) {
    std::set<std::string> seen;
    for (const pugi::xml_node header : request.Header().children()) {
        if (header.type() != pugi::node_element || !IsForThisNode(header)) continue;
        const std::string name = QualifiedName(header);
        const bool known = IsKnown(name);
        if (!known && MustUnderstand(header)) {
            SoapFault fault("s:MustUnderstand", "", "The header " + name + " is not understood.");
            fault.notUnderstood = name;
            throw fault;
        }
        if (known && name != In(ns::kAddressing, "RelatesTo") && !seen.insert(name).second)
            throw SoapFault(kSender, "wsa:InvalidMessageInformationHeader",
                            "The header " + name + " is there twice.");
    }
}

void CheckFeatures(const SoapMessage& request) {
    if (request.Addressing("MessageID").empty())
        throw SoapFault(kSender, "wsa:MessageInformationHeaderRequired",
                        "The header wsa:MessageID is missing.");
    CheckReply(request, "ReplyTo");
    CheckReply(request, "FaultTo");
    CheckTimeout(Management(request, "OperationTimeout"));
    CheckLocale(Management(request, "Locale"));
    CheckOptions(Management(request, "OptionSet"));
    if (Management(request, "FragmentTransfer"))
        throw SoapFault(kSender, kUnsupported, "Fragments are not supported.", "FragmentLevelAccess");
}

std::optional<size_t> MaxEnvelopeOf(const SoapMessage& request) {
    const pugi::xml_node header = Management(request, "MaxEnvelopeSize");
    if (!header || !MustUnderstand(header)) return std::nullopt;
    const std::string text = TextIn(header);
    size_t size = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), size);
    if (error != std::errc() || stop != text.data() + text.size())
        throw SoapFault(kSender, kSchema, "MaxEnvelopeSize is no number.");
    if (size < kSmallestMaxEnvelope)
        throw SoapFault(kSender, "wsman:EncodingLimit",
                        "MaxEnvelopeSize is below " + std::to_string(kSmallestMaxEnvelope) + " bytes.",
                        "MinimumEnvelopeLimit");
    return size;
}

}  // namespace mpm
