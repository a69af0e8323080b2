// Finds the certificate of an authority in the machine's own stores, and the root of its chain.
#pragma once

#include <cstdint>
#include <string>

#include "base/CertificateOwners.h"

// Writes the certificate whose subject contains the name to intermediate.pem, and the root of its chain to
// root.pem. Returns 0, or 1 on any failure, after which intermediate.pem may exist.
uint32_t FindCertificateChain(const std::string& issuerName);

// A certificate, with the store that it was found in. The certificate is freed first.
struct FoundCertificate {
    UniqueCertificateStore store;
    UniqueCertificate certificate;
};

// Returns the first certificate of the machine's store whose subject contains the text, in any case; none
// when the store cannot be opened.
FoundCertificate FindInStore(const wchar_t* storeName, const std::string& subject);

// Returns the display name of the last certificate of the chain, also of a chain that is not trusted or not
// complete. Empty when there is none. The certificate's store must be open.
std::string GetRootIssuerName(PCCERT_CONTEXT certificate);

// Does nothing when the file cannot be opened. A certificate that cannot be converted leaves the header and
// the footer.
void WriteCertificatePem(const std::string& path, const CERT_CONTEXT& certificate);
