#include "firmware/dash/Cim.h"

#include <algorithm>
#include <charconv>
#include <set>

namespace mpm {

namespace {

const std::string kGet = std::string(ns::kTransfer) + "/Get";
const std::string kEnumerate = std::string(ns::kEnumeration) + "/Enumerate";
const std::string kPull = std::string(ns::kEnumeration) + "/Pull";
const std::string kRelease = std::string(ns::kEnumeration) + "/Release";

pugi::xml_node SelectorsIn(pugi::xml_node parent) {
    return ChildNamed(parent, ns::kManagement, "SelectorSet");
}

bool Selects(pugi::xml_node selector, const CimProperty& key) {
    if (key.refersTo.empty()) return selector.text().get() == key.values.front();
    return RefersTo(ChildNamed(selector, ns::kAddressing, "EndpointReference"), key.refersTo.front());
}

// All of the keys, and nothing else.
bool Select(pugi::xml_node selectors, const CimInstance& instance) {
    std::set<std::string> named;
    for (const pugi::xml_node selector : selectors.children()) {
        if (selector.type() != pugi::node_element) continue;
        const std::string name = selector.attribute("Name").value();
        const auto key =
            std::find_if(instance.properties.begin(), instance.properties.end(),
                         [&](const CimProperty& each) { return each.isKey && each.name == name; });
        if (key == instance.properties.end() || !named.insert(name).second || !Selects(selector, *key))
            return false;
    }
    const auto keys = std::count_if(instance.properties.begin(), instance.properties.end(),
                                    [](const CimProperty& each) { return each.isKey; });
    return named.size() == size_t(keys);
}

// The instances of the class that the request's headers name.
std::vector<CimInstance> OfClass(const SoapMessage& request, const std::vector<CimInstance>& instances) {
    const std::string uri = ChildNamed(request.Header(), ns::kManagement, "ResourceURI").text().get();
    std::vector<CimInstance> found;
    for (const CimInstance& instance : instances)
        if (CimUri(instance.className) == uri) found.push_back(instance);
    if (found.empty())
        throw SoapFault("s:Sender", "wsa:DestinationUnreachable", "There is no resource " + uri + ".");
    return found;
}

void AppendReference(pugi::xml_node parent, const CimInstance& instance) {
    AppendText(parent, "wsa:Address", std::string(ns::kAddressing) + "/role/anonymous");
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

// An enumeration is told whole by its context, so that none is kept for a console that never comes back.
struct Enumeration {
    bool references = false;  // what they are called by instead of the instances themselves
    size_t next = 0;

    std::string Text() const { return (references ? "references-" : "objects-") + std::to_string(next); }
    static Enumeration In(pugi::xml_node body, size_t count) {
        const std::string text = ChildNamed(body, ns::kEnumeration, "EnumerationContext").text().get();
        for (const bool references : {false, true})
            for (size_t next = 0; next < count; ++next)
                if (const Enumeration one{references, next}; one.Text() == text) return one;
        throw SoapFault("s:Receiver", "wsen:InvalidEnumerationContext", "There is no such enumeration.");
    }
};

void Enumerate(const SoapMessage& request, SoapAnswer& answer) {
    const pugi::xml_node body = Expected(request, "Enumerate");
    if (ChildNamed(body, ns::kManagement, "Filter") || ChildNamed(body, ns::kEnumeration, "Filter"))
        throw SoapFault("s:Sender", "wsen:FilteringNotSupported", "Filters are not supported.");
    const std::string mode = ChildNamed(body, ns::kManagement, "EnumerationMode").text().get();
    if (!mode.empty() && mode != "EnumerateEPR")
        throw SoapFault("s:Sender", "wsman:UnsupportedFeature", "The mode is not supported: " + mode);
    pugi::xml_node response = answer.Body().append_child("wsen:EnumerateResponse");
    AppendText(response, "wsen:EnumerationContext", Enumeration{!mode.empty(), 0}.Text());
}

size_t MaxElements(pugi::xml_node body) {
    const pugi::xml_node given = ChildNamed(body, ns::kEnumeration, "MaxElements");
    if (!given) return 1;
    const std::string text = given.text().get();
    size_t number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || stop != text.data() + text.size() || number == 0)
        throw SoapFault("s:Sender", "wsman:SchemaValidationError", "MaxElements is no positive number.");
    return number;
}

void Pull(const SoapMessage& request, SoapAnswer& answer, const std::vector<CimInstance>& instances) {
    const pugi::xml_node body = Expected(request, "Pull");
    Enumeration at = Enumeration::In(body, instances.size());
    const size_t end = at.next + std::min(MaxElements(body), instances.size() - at.next);
    pugi::xml_node response = answer.Body().append_child("wsen:PullResponse");
    if (end < instances.size())
        AppendText(response, "wsen:EnumerationContext", Enumeration{at.references, end}.Text());
    pugi::xml_node items = response.append_child("wsen:Items");
    for (; at.next < end; ++at.next)
        if (at.references)
            AppendReference(items.append_child("wsa:EndpointReference"), instances[at.next]);
        else
            AppendInstance(items, instances[at.next]);
    if (end == instances.size()) response.append_child("wsen:EndOfSequence");
}

}  // namespace

std::string CimUri(const std::string& className) {
    return ns::kCim + className;
}

bool RefersTo(pugi::xml_node reference, const CimInstance& instance) {
    const pugi::xml_node parameters = ChildNamed(reference, ns::kAddressing, "ReferenceParameters");
    const std::string uri = ChildNamed(parameters, ns::kManagement, "ResourceURI").text().get();
    return uri == CimUri(instance.className) && Select(SelectorsIn(parameters), instance);
}

CimInstance Addressed(const SoapMessage& request, const std::vector<CimInstance>& instances) {
    const std::vector<CimInstance> found = OfClass(request, instances);
    const pugi::xml_node selectors = SelectorsIn(request.Header());
    if (!selectors && found.size() == 1) return found.front();
    for (const CimInstance& instance : found)
        if (Select(selectors, instance)) return instance;
    throw SoapFault("s:Sender", "wsman:InvalidSelectors", "The selectors name no instance.");
}

void OfferCim(Wsman& wsman, std::function<std::vector<CimInstance>()> instances) {
    wsman.Offer(kGet, [instances](const SoapMessage& request, SoapAnswer& answer) {
        answer.Address(request);
        AppendInstance(answer.Body(), Addressed(request, instances()));
    });
    wsman.Offer(kEnumerate, [instances](const SoapMessage& request, SoapAnswer& answer) {
        OfClass(request, instances());
        answer.Address(request);
        Enumerate(request, answer);
    });
    wsman.Offer(kPull, [instances](const SoapMessage& request, SoapAnswer& answer) {
        answer.Address(request);
        Pull(request, answer, OfClass(request, instances()));
    });
    wsman.Offer(kRelease, [instances](const SoapMessage& request, SoapAnswer& answer) {
        Enumeration::In(Expected(request, "Release"), OfClass(request, instances()).size());
        answer.Address(request);
    });
}

}  // namespace mpm
