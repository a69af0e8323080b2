// The command line with which the service submits a request.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace certreq {

struct Submission {
    std::string authority;            // the name behind the host in -config
    std::string certificateTemplate;  // of -attrib
    std::string requestFile, certificateFile;
};

// Returns nothing unless the arguments are -submit -config "HOST\NAME" -attrib "CertificateTemplate:NAME" and
// two files.
std::optional<Submission> ParseArguments(const std::vector<std::string>& arguments);

}  // namespace certreq
