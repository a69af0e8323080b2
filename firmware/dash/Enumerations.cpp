#include "firmware/dash/Enumerations.h"

#include <algorithm>

#include "firmware/dash/Soap.h"

namespace mpm {

std::string Enumerations::Begin(const std::string& classUri, bool references) {
    if (m_enumerations.size() == kMax) m_enumerations.pop_front();
    return m_enumerations.emplace_back(Enumeration{NewUuid(), classUri, references, 0}).context;
}

Enumerations::Enumeration& Enumerations::Find(const std::string& context, const std::string& classUri) {
    const auto found = std::find_if(
        m_enumerations.begin(), m_enumerations.end(),
        [&](const Enumeration& each) { return each.context == context && each.classUri == classUri; });
    if (found == m_enumerations.end())
        throw SoapFault("s:Receiver", "wsen:InvalidEnumerationContext", "There is no such enumeration.");
    return *found;
}

void Enumerations::End(const Enumeration& enumeration) {
    std::erase_if(m_enumerations, [context = enumeration.context](const Enumeration& each) {
        return each.context == context;
    });
}

}  // namespace mpm
