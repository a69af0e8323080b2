#include "winhost/crypt/CertificateStore.h"

#include <openssl/bio.h>
#include <openssl/pem.h>
#include <strings.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "winhost/pc/Pc.h"

namespace winhost {

namespace {

// Empty for a text that is no certificate.
Encoded Read(const std::string& certificate) {
    const std::string pem = PemOf(certificate);
    const std::unique_ptr<BIO, decltype(&BIO_free)> bio(
        BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &BIO_free);
    const X509Owner x509(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), &X509_free);
    return EncodedOf(x509.get());
}

// Where Windows keeps the stores "MY" and "CA" of the machine. A value's text is a certificate.
std::vector<std::string> InRegistry(const std::string& store) {
    const std::string key =
        R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\SystemCertificates\)" + store + R"(\Certificates)";
    return Pc::Instance().Get([&](const PcDescription& pc) {
        std::vector<std::string> certificates;
        for (const auto& [described, values] : pc.registry)
            if (strcasecmp(described.c_str(), key.c_str()) == 0)
                for (const auto& [name, text] : values)
                    certificates.push_back(text);
        return certificates;
    });
}

std::vector<std::string> Described(const std::string& store) {
    return store == "ROOT" ? Pc::Instance().Get(&PcDescription::rootCertificates) : InRegistry(store);
}

}  // namespace

std::string PemOf(const std::string& certificate) {
    if (certificate.starts_with("-----BEGIN")) return certificate;
    std::ifstream file(Pc::Instance().HostPath(certificate), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

X509Owner Parse(const BYTE* bytes, size_t size) {
    return {d2i_X509(nullptr, &bytes, static_cast<long>(size)), &X509_free};
}

Encoded EncodedOf(X509* certificate) {
    unsigned char* bytes = nullptr;
    const int size = certificate ? i2d_X509(certificate, &bytes) : 0;
    Encoded encoded(bytes, bytes + std::max(size, 0));
    OPENSSL_free(bytes);
    return encoded;
}

std::optional<std::vector<Encoded>> CertificatesOf(std::string_view store) {
    const std::string name(store);
    for (const char* const known : {"MY", "CA", "ROOT"}) {
        if (strcasecmp(known, name.c_str()) != 0) continue;
        std::vector<Encoded> certificates;
        for (const std::string& certificate : Described(known))
            if (Encoded encoded = Read(certificate); !encoded.empty())
                certificates.push_back(std::move(encoded));
        return certificates;
    }
    return std::nullopt;
}

}  // namespace winhost
