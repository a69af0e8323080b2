#include "firmware/Faults.h"

#include "firmware/Catalogue.h"

namespace mpm {

Fault Faults::Take(const char* name) {
    const auto found = m_faults.find(std::string_view(name));
    if (found == m_faults.end()) return {};
    const Fault taken = found->second;
    Fault& fault = found->second;
    if (fault.error && fault.times > 0 && --fault.times == 0) fault.error.reset();
    return taken;
}

std::vector<std::string> Faults::Names(const RequestId& id) {
    std::vector<std::string> names;
    if (id.Name().empty()) {
        for (const MailboxRequest& operation : kMailboxRequests)
            if (operation.code == id.Code()) names.push_back(operation.name);
    } else if (const MailboxRequest* operation = FindRequest(id.Name())) {
        names.push_back(operation->name);
    }
    if (names.empty())
        throw std::invalid_argument("there is no request " +
                                    (id.Name().empty() ? CodeText(id.Code()) : id.Name()));
    return names;
}

}  // namespace mpm
