#include "firmware/dash/Cim.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>
#include <set>

#include "firmware/dash/Enumerations.h"

namespace mpm {

namespace {

const std::string kGet = std::string(ns::kTransfer) + "/Get";
const std::string kEnumerate = std::string(ns::kEnumeration) + "/Enumerate";
const std::string kPull = std::string(ns::kEnumeration) + "/Pull";
const std::string kRelease = std::string(ns::kEnumeration) + "/Release";

// Names the namespace of a class instead of a key.
constexpr const char* kNamespaceSelector = "__cimnamespace";

pugi::xml_node SelectorsIn(pugi::xml_node parent) {
    return ChildNamed(parent, ns::kManagement, "SelectorSet");
}

bool SameName(const std::string& a, const std::string& b) {
    return strcasecmp(a.c_str(), b.c_str()) == 0;
}

// The value of a key that names a class is a name too.
bool IsClassKey(const CimProperty& key) {
    return key.name.ends_with("CreationClassName");
}

bool Selects(pugi::xml_node selector, const CimProperty& key) {
    if (!key.refersTo.empty())
        return RefersTo(ChildNamed(selector, ns::kAddressing, "EndpointReference"), key.refersTo.front());
    const std::string value = TextIn(selector);
    return IsClassKey(key) ? SameName(value, key.values.front()) : value == key.values.front();
}

// What is wrong with the selectors as the detail of a fault, or nothing when they are all of the keys and
// nothing else. The namespace may be named too.
std::optional<std::string> MismatchOf(pugi::xml_node selectors, const CimInstance& instance) {
    std::set<std::string> named;
    for (const pugi::xml_node selector : selectors.children()) {
        if (selector.type() != pugi::node_element) continue;
        const std::string name = AttributeIn(selector, "", "Name").value_or("");
        const auto key =
            std::find_if(instance.properties.begin(), instance.properties.end(),
                         [&](const CimProperty& each) { return each.isKey && SameName(each.name, name); });
        const bool isNamespace = SameName(name, kNamespaceSelector);
        if (!isNamespace && key == instance.properties.end()) return "UnexpectedSelectors";
        if (!named.insert(isNamespace ? kNamespaceSelector : key->name).second) return "DuplicateSelectors";
        if (isNamespace ? !SameName(TextIn(selector), kCimNamespace) : !Selects(selector, *key))
            return "InvalidValue";
    }
    named.erase(kNamespaceSelector);
    const auto keys = std::count_if(instance.properties.begin(), instance.properties.end(),
                                    [](const CimProperty& each) { return each.isKey; });
    if (named.size() < size_t(keys)) return "InsufficientSelectors";
    return std::nullopt;
}

std::string ResourceIn(pugi::xml_node parent) {
    return TextIn(ChildNamed(parent, ns::kManagement, "ResourceURI"));
}

// The instances of the class that the request's headers name.
std::vector<CimInstance> OfClass(const SoapMessage& request, const std::vector<CimInstance>& instances) {
    const std::string uri = ResourceIn(request.Header());
    std::vector<CimInstance> found;
    for (const CimInstance& instance : instances)
        if (IsCimUri(uri, instance.className)) found.push_back(instance);
    if (found.empty())
        throw SoapFault("s:Sender", "wsa:DestinationUnreachable", "There is no resource " + uri + ".",
                        "InvalidResourceURI");
    const pugi::xml_node selectors = SelectorsIn(request.Header());
    for (const pugi::xml_node selector : selectors.children())
        if (SameName(AttributeIn(selector, "", "Name").value_or(""), kNamespaceSelector) &&
            !SameName(TextIn(selector), kCimNamespace))
            throw SoapFault("s:Sender", "wsman:InvalidSelectors",
                            "There is no CIM namespace " + TextIn(selector) + ".", "InvalidValue");
    return found;
}

bool NamesOnlyTheNamespace(pugi::xml_node selectors) {
    for (const pugi::xml_node selector : selectors.children())
        if (selector.type() == pugi::node_element &&
            !SameName(AttributeIn(selector, "", "Name").value_or(""), kNamespaceSelector))
            return false;
    return selectors.first_child();
}

void AppendReference(pugi::xml_node parent, const CimInstance& instance) {
    AppendText(parent, "wsa:Address", kAnonymous);
    pugi::xml_node parameters = parent.append_child("wsa:ReferenceParameters");
    AppendText(parameters, "wsman:ResourceURI", CimUri(instance.className));
    pugi::xml_node selectors = parameters.append_child("wsman:SelectorSet");
    for (const CimProperty& property : instance.properties) {
        if (!property.isKey) continue;
        pugi::xml_node selector = selectors.append_child("wsman:Selector");
        selector.append_attribute("Name") = property.name.c_str();
        if (property.refersTo.empty())
            selector.text().set(property.values.front().c_str());
        else
            AppendReference(selector.append_child("wsa:EndpointReference"), property.refersTo.front());
    }
}

void AppendInstance(pugi::xml_node parent, const CimInstance& instance) {
    pugi::xml_node object = parent.append_child(("p:" + instance.className).c_str());
    object.append_attribute("xmlns:p") = CimUri(instance.className).c_str();
    for (const CimProperty& property : instance.properties) {
        const std::string name = "p:" + property.name;
        for (const std::string& value : property.values)
            AppendText(object, name.c_str(), value);
        for (const CimInstance& named : property.refersTo)
            AppendReference(object.append_child(name.c_str()), named);
    }
}

pugi::xml_node Expected(const SoapMessage& request, const char* name) {
    const pugi::xml_node body = ChildNamed(request.Body(), ns::kEnumeration, name);
    if (!body)
        throw SoapFault("s:Sender", "wsman:SchemaValidationError",
                        std::string("The body is no ") + name + ".");
    return body;
}

void Enumerate(const SoapMessage& request, SoapAnswer& answer, const std::string& classUri,
               Enumerations& enumerations) {
    const pugi::xml_node body = Expected(request, "Enumerate");
    if (ChildNamed(body, ns::kManagement, "Filter") || ChildNamed(body, ns::kEnumeration, "Filter"))
        throw SoapFault("s:Sender", "wsen:FilteringNotSupported", "Filters are not supported.");
    if (ChildNamed(body, ns::kEnumeration, "EndTo"))
        throw SoapFault("s:Sender", "wsman:UnsupportedFeature", "The end is not reported.", "AddressingMode");
    const std::string mode = TextIn(ChildNamed(body, ns::kManagement, "EnumerationMode"));
    if (!mode.empty() && mode != "EnumerateEPR")
        throw SoapFault("s:Sender", "wsman:UnsupportedFeature", "The mode is not supported: " + mode,
                        "EnumerationMode");
    pugi::xml_node response = answer.Body().append_child("wsen:EnumerateResponse");
    AppendText(response, "wsen:EnumerationContext", enumerations.Begin(classUri, !mode.empty()));
}

Enumerations::Enumeration& EnumerationIn(pugi::xml_node body, const std::string& classUri,
                                         Enumerations& enumerations) {
    return enumerations.Find(TextIn(ChildNamed(body, ns::kEnumeration, "EnumerationContext")), classUri);
}

size_t MaxElements(pugi::xml_node body) {
    const pugi::xml_node given = ChildNamed(body, ns::kEnumeration, "MaxElements");
    if (!given) return 1;
    const std::string text = TextIn(given);
    size_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size() || number == 0)
        throw SoapFault("s:Sender", "wsman:SchemaValidationError", "MaxElements is no positive number.");
    return number;
}

void Pull(const SoapMessage& request, SoapAnswer& answer, const std::vector<CimInstance>& instances,
          Enumerations& enumerations) {
    const pugi::xml_node body = Expected(request, "Pull");
    Enumerations::Enumeration& at = EnumerationIn(body, CimUri(instances.front().className), enumerations);
    const size_t begin = std::min(at.next, instances.size());
    const size_t end = begin + std::min(MaxElements(body), instances.size() - begin);
    pugi::xml_node response = answer.Body().append_child("wsen:PullResponse");
    if (end < instances.size()) AppendText(response, "wsen:EnumerationContext", at.context);
    pugi::xml_node items = response.append_child("wsen:Items");
    for (at.next = begin; at.next < end; ++at.next)
        if (at.references)
            AppendReference(items.append_child("wsa:EndpointReference"), instances[at.next]);
        else
            AppendInstance(items, instances[at.next]);
    if (end < instances.size()) return;
    response.append_child("wsen:EndOfSequence");
    enumerations.End(at);
}

}  // namespace

std::string CimUri(const std::string& className) {
    return ns::kCim + className;
}

bool IsCimUri(const std::string& uri, const std::string& className) {
    return uri.starts_with(ns::kCim) && SameName(uri, CimUri(className));
}

pugi::xml_node ClassChild(pugi::xml_node parent, const std::string& className, const std::string& name) {
    for (const pugi::xml_node child : parent.children()) {
        const std::string whole = QualifiedName(child);
        const size_t end = whole.find('}');
        if (child.type() == pugi::node_element && IsCimUri(whole.substr(1, end - 1), className) &&
            whole.substr(end + 1) == name)
            return child;
    }
    return {};
}

bool RefersTo(pugi::xml_node reference, const CimInstance& instance) {
    const pugi::xml_node parameters = ChildNamed(reference, ns::kAddressing, "ReferenceParameters");
    return IsCimUri(ResourceIn(parameters), instance.className) &&
           !MismatchOf(SelectorsIn(parameters), instance);
}

CimInstance Addressed(const SoapMessage& request, const std::vector<CimInstance>& instances) {
    const std::vector<CimInstance> found = OfClass(request, instances);
    const pugi::xml_node selectors = SelectorsIn(request.Header());
    if ((!selectors || NamesOnlyTheNamespace(selectors)) && found.size() == 1) return found.front();
    std::string detail;
    for (const CimInstance& instance : found) {
        const std::optional<std::string> mismatch = MismatchOf(selectors, instance);
        if (!mismatch) return instance;
        detail = *mismatch;
    }
    throw SoapFault("s:Sender", "wsman:InvalidSelectors", "The selectors name no instance.", detail);
}

void OfferCim(Wsman& wsman, std::function<std::vector<CimInstance>()> instances) {
    const auto enumerations = std::make_shared<Enumerations>();
    wsman.Offer(kGet, [instances](const SoapMessage& request, SoapAnswer& answer) {
        answer.Address(request);
        AppendInstance(answer.Body(), Addressed(request, instances()));
    });
    wsman.Offer(kEnumerate, [instances, enumerations](const SoapMessage& request, SoapAnswer& answer) {
        const std::string className = OfClass(request, instances()).front().className;
        answer.Address(request);
        Enumerate(request, answer, CimUri(className), *enumerations);
    });
    wsman.Offer(kPull, [instances, enumerations](const SoapMessage& request, SoapAnswer& answer) {
        answer.Address(request);
        Pull(request, answer, OfClass(request, instances()), *enumerations);
    });
    wsman.Offer(kRelease, [instances, enumerations](const SoapMessage& request, SoapAnswer& answer) {
        const std::string className = OfClass(request, instances()).front().className;
        enumerations->End(EnumerationIn(Expected(request, "Release"), CimUri(className), *enumerations));
        answer.Address(request);
    });
}

}  // namespace mpm
