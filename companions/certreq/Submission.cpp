#include "companions/certreq/Submission.h"

namespace certreq {

std::optional<Submission> ParseArguments(const std::vector<std::string>& arguments) {
    static const std::string kTemplate = "CertificateTemplate:";
    if (arguments.size() != 7 || arguments[0] != "-submit" || arguments[1] != "-config" ||
        arguments[3] != "-attrib" || !arguments[4].starts_with(kTemplate))
        return {};
    const size_t separator = arguments[2].find('\\');
    if (separator == std::string::npos || arguments[5].empty() || arguments[6].empty()) return {};
    return Submission{arguments[2].substr(separator + 1), arguments[4].substr(kTemplate.size()), arguments[5],
                      arguments[6]};
}

}  // namespace certreq
