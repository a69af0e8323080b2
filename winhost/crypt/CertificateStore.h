// The certificates of the PC's stores, and a certificate as a caller holds it.
#pragma once

#include <openssl/x509.h>
#include <wincrypt.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "winhost/core/HandleTable.h"

namespace winhost {

using X509Owner = std::unique_ptr<X509, decltype(&X509_free)>;
using Encoded = std::vector<BYTE>;

// The text of a certificate of the description, which is one or names its file. Empty for a file that is
// missing.
std::string PemOf(const std::string& certificate);
// Null for bytes that are no certificate.
X509Owner Parse(const BYTE* bytes, size_t size);
// Empty for null.
Encoded EncodedOf(X509* certificate);

// The certificates of the machine's store of this name, in any case, in the order of the PC's description. A
// file that is missing or holds none is left out. Nothing when there is no such store.
std::optional<std::vector<Encoded>> CertificatesOf(std::string_view store);

class CertificateStore final : public Object {
  public:
    explicit CertificateStore(std::vector<Encoded> certificates) : m_certificates(std::move(certificates)) {}
    bool IsClosedByCloseHandle() const override { return false; }
    const std::vector<Encoded>& All() const { return m_certificates; }

  private:
    const std::vector<Encoded> m_certificates;
};

// The context lies in its own memory, and with it the bytes that it points to.
struct CertificateContext : CERT_CONTEXT {
    CertificateContext(const Encoded& bytes, HCERTSTORE store) : CERT_CONTEXT{}, encoded(bytes) {
        dwCertEncodingType = X509_ASN_ENCODING;
        pbCertEncoded = encoded.data();
        cbCertEncoded = static_cast<DWORD>(encoded.size());
        hCertStore = store;
    }
    CertificateContext(const CertificateContext&) = delete;
    CertificateContext& operator=(const CertificateContext&) = delete;
    Encoded encoded;
};

}  // namespace winhost
