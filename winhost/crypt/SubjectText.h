// The subject of a certificate as text.
#pragma once

#include <string>

#include "winhost/crypt/CertificateStore.h"

namespace winhost {

// Whether the subject's text contains this one; letters from A to Z match in any case.
bool SubjectContains(const Encoded& certificate, const std::string& text);

// The common name, or the first of unit, organisation and mail address that is there. Empty for null.
std::string DisplayNameOf(X509* certificate);

}  // namespace winhost
