// Instances of CIM classes that a console finds and reads through WS-Management: Get, Enumerate, Pull,
// Release.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "firmware/dash/Wsman.h"

namespace mpm {

// The CIM namespace of all classes.
inline constexpr const char* kCimNamespace = "root/cimv2";

struct CimInstance;

struct CimProperty {
    std::string name;
    std::vector<std::string> values;    // one, or those of an array
    std::vector<CimInstance> refersTo;  // of a reference: the one instance that it names, in place of values
    bool isKey = false;
};

struct CimInstance {
    std::string className;
    std::vector<CimProperty> properties;
};

// The resource URI of a class, which is also the namespace of its elements.
std::string CimUri(const std::string& className);
// Whether it is the resource URI of the class. Names of classes are compared without regard to case.
bool IsCimUri(const std::string& uri, const std::string& className);
// The first child element of this name in the namespace of the class; a null node when there is none.
pugi::xml_node ClassChild(pugi::xml_node parent, const std::string& className, const std::string& name);
// Whether an endpoint reference names this instance by its class and all of its keys.
bool RefersTo(pugi::xml_node reference, const CimInstance& instance);
// The instance that the request's headers name. A class with a single instance needs no selectors. Throws
// SoapFault when there is none.
CimInstance Addressed(const SoapMessage& request, const std::vector<CimInstance>& instances);

// `instances` is asked anew for each request, so that its values are current.
void OfferCim(Wsman& wsman, std::function<std::vector<CimInstance>()> instances);

}  // namespace mpm
