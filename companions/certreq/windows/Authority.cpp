#include "companions/certreq/Authority.h"

#include <winsock2.h>
#include <windows.h>
#include <wincrypt.h>

#include <cstring>
#include <stdexcept>
#include <vector>

namespace certreq {

namespace {

using Bytes = std::vector<BYTE>;

constexpr const char* kContainer = "Example Enterprise CA";
constexpr DWORD kKeyBits = 2048;
constexpr DWORD kEncoding = X509_ASN_ENCODING;
constexpr uint64_t kDay = 24ull * 60 * 60 * 10'000'000;  // in the units of FILETIME
constexpr uint64_t kAuthorityDays = 3650, kCertificateDays = 365;

void Check(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(std::string(what) + ": error " + std::to_string(GetLastError()));
}

// What a call that reports its size first fills.
template <class Call>
Bytes Filled(const char* what, const Call& call) {
    DWORD size = 0;
    Check(call(nullptr, &size), what);
    Bytes bytes(size);
    Check(call(bytes.data(), &size), what);
    bytes.resize(size);
    return bytes;
}

Bytes Encode(LPCSTR type, const void* value) {
    return Filled("encoding", [&](BYTE* bytes, DWORD* size) {
        return CryptEncodeObjectEx(kEncoding, type, value, 0, nullptr, bytes, size);
    });
}

FILETIME DaysFromNow(uint64_t days, bool back = false) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    const uint64_t units = uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
    const uint64_t then = back ? units - days * kDay : units + days * kDay;
    return {static_cast<DWORD>(then), static_cast<DWORD>(then >> 32)};
}

HCRYPTPROV OpenProvider() {
    HCRYPTPROV provider = 0;
    const auto acquire = [&](DWORD flags) {
        return CryptAcquireContextA(&provider, kContainer, MS_ENH_RSA_AES_PROV_A, PROV_RSA_AES,
                                    flags | CRYPT_MACHINE_KEYSET | CRYPT_SILENT);
    };
    // When another process was faster, its key is there.
    Check(acquire(0) || acquire(CRYPT_NEWKEYSET) || acquire(0), "key container");
    return provider;
}

void EnsureKey(HCRYPTPROV provider) {
    HCRYPTKEY key = 0;
    Check(CryptGetUserKey(provider, AT_SIGNATURE, &key) ||
              CryptGenKey(provider, AT_SIGNATURE, kKeyBits << 16, &key),
          "key");
    CryptDestroyKey(key);
}

Bytes EncodedName() {
    char organisation[] = "Example", name[] = "Example Enterprise CA",
         organisationId[] = szOID_ORGANIZATION_NAME, nameId[] = szOID_COMMON_NAME;
    const auto attribute = [](char* id, char* text) {
        return CERT_RDN_ATTR{id,
                             CERT_RDN_PRINTABLE_STRING,
                             {static_cast<DWORD>(std::strlen(text)), reinterpret_cast<BYTE*>(text)}};
    };
    CERT_RDN_ATTR attributes[] = {attribute(organisationId, organisation), attribute(nameId, name)};
    CERT_RDN parts[] = {{1, &attributes[0]}, {1, &attributes[1]}};
    const CERT_NAME_INFO whole{2, parts};
    return Encode(X509_NAME, &whole);
}

CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm() {
    static char id[] = szOID_RSA_SHA256RSA;
    CRYPT_ALGORITHM_IDENTIFIER algorithm{};
    algorithm.pszObjId = id;
    return algorithm;
}

// Signs what the caller has filled, and completes it with version, serial number, issuer and times.
Bytes Sign(HCRYPTPROV provider, CERT_INFO info, uint64_t days) {
    uint64_t serial = 0;
    Check(CryptGenRandom(provider, sizeof serial, reinterpret_cast<BYTE*>(&serial)), "random bytes");
    serial >>= 1;
    Bytes issuer = EncodedName();
    info.dwVersion = CERT_V3;
    info.SerialNumber = {sizeof serial, reinterpret_cast<BYTE*>(&serial)};
    info.SignatureAlgorithm = SignatureAlgorithm();
    info.Issuer = {static_cast<DWORD>(issuer.size()), issuer.data()};
    info.NotBefore = DaysFromNow(1, true);
    info.NotAfter = DaysFromNow(days);
    return Filled("signature", [&](BYTE* bytes, DWORD* size) {
        return CryptSignAndEncodeCertificate(provider, AT_SIGNATURE, kEncoding, X509_CERT_TO_BE_SIGNED, &info,
                                             &info.SignatureAlgorithm, nullptr, bytes, size);
    });
}

CERT_EXTENSION BasicConstraints(Bytes& encoded, bool isAuthority) {
    static char id[] = szOID_BASIC_CONSTRAINTS2;
    const CERT_BASIC_CONSTRAINTS2_INFO value{isAuthority, FALSE, 0};
    encoded = Encode(X509_BASIC_CONSTRAINTS2, &value);
    return {id, TRUE, {static_cast<DWORD>(encoded.size()), encoded.data()}};
}

Bytes MakeCertificate(HCRYPTPROV provider) {
    Bytes publicKey = Filled("public key", [&](BYTE* bytes, DWORD* size) {
        return CryptExportPublicKeyInfo(provider, AT_SIGNATURE, kEncoding,
                                        reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(bytes), size);
    });
    Bytes name = EncodedName(), constraints;
    CERT_EXTENSION extension = BasicConstraints(constraints, true);
    CERT_INFO info{};
    info.Subject = {static_cast<DWORD>(name.size()), name.data()};
    info.SubjectPublicKeyInfo = *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(publicKey.data());
    info.cExtension = 1;
    info.rgExtension = &extension;
    return Sign(provider, info, kAuthorityDays);
}

// Whether the store has the authority's certificate already; else it gets this one.
void Publish(const wchar_t* storeName, const Bytes& certificate) {
    const HCERTSTORE store =
        CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, storeName);
    Check(store != nullptr, "the machine's store cannot be opened");
    const BOOL added = CertAddEncodedCertificateToStore(store, kEncoding, certificate.data(),
                                                        static_cast<DWORD>(certificate.size()),
                                                        CERT_STORE_ADD_USE_EXISTING, nullptr);
    CertCloseStore(store, 0);
    Check(added, "the machine's store cannot be written to");
}

bool IsPublished() {
    const HCERTSTORE store = CertOpenStore(
        CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE | CERT_STORE_READONLY_FLAG, L"ROOT");
    Check(store != nullptr, "the machine's store cannot be opened");
    const PCCERT_CONTEXT found =
        CertFindCertificateInStore(store, kEncoding, 0, CERT_FIND_SUBJECT_STR_A, kAuthorityName, nullptr);
    if (found) CertFreeCertificateContext(found);
    CertCloseStore(store, 0);
    return found != nullptr;
}

// The parts of a request's inside: a sequence of version, subject, key and attributes. Their heads are
// included.
struct RequestParts {
    CRYPT_DATA_BLOB subject, publicKey;
};

// Takes one element from the front, and returns it with its head.
CRYPT_DATA_BLOB TakeElement(CRYPT_DATA_BLOB& rest, DWORD* headSize = nullptr) {
    const auto fail = [] { throw std::runtime_error("the file is no certificate request"); };
    if (rest.cbData < 2) fail();
    DWORD head = 2, size = rest.pbData[1];
    if (size & 0x80) {
        const DWORD count = size & 0x7F;
        if (count == 0 || count > 2 || rest.cbData < 2 + count) fail();
        size = 0;
        for (DWORD i = 0; i < count; ++i)
            size = size << 8 | rest.pbData[2 + i];
        head += count;
    }
    if (size > rest.cbData - head) fail();
    const CRYPT_DATA_BLOB element{head + size, rest.pbData};
    rest = {rest.cbData - element.cbData, rest.pbData + element.cbData};
    if (headSize) *headSize = head;
    return element;
}

CRYPT_DATA_BLOB InsideOf(CRYPT_DATA_BLOB element) {
    DWORD head = 0;
    const CRYPT_DATA_BLOB whole = TakeElement(element, &head);
    return {whole.cbData - head, whole.pbData + head};
}

RequestParts PartsOf(Bytes& request) {
    CRYPT_DATA_BLOB inside = InsideOf(InsideOf({static_cast<DWORD>(request.size()), request.data()}));
    TakeElement(inside);
    RequestParts parts{};
    parts.subject = TakeElement(inside);
    parts.publicKey = TakeElement(inside);
    return parts;
}

Bytes FromPem(const std::string& pem) {
    return Filled("the file is no certificate request", [&](BYTE* bytes, DWORD* size) {
        return CryptStringToBinaryA(pem.c_str(), 0, CRYPT_STRING_BASE64HEADER, bytes, size, nullptr, nullptr);
    });
}

std::string ToPem(const Bytes& certificate) {
    DWORD size = 0;
    const auto convert = [&](char* text) {
        Check(CryptBinaryToStringA(certificate.data(), static_cast<DWORD>(certificate.size()),
                                   CRYPT_STRING_BASE64HEADER, text, &size),
              "PEM");
    };
    convert(nullptr);
    std::string text(size, '\0');
    convert(text.data());
    text.resize(size);
    return text;
}

}  // namespace

struct Authority::Keys {
    ~Keys() { CryptReleaseContext(provider, 0); }
    HCRYPTPROV provider = 0;
};

Authority::~Authority() = default;

Authority::Authority(const std::filesystem::path&) : m_keys(std::make_unique<Keys>()) {
    m_keys->provider = OpenProvider();
    EnsureKey(m_keys->provider);
    if (IsPublished()) return;
    const Bytes certificate = MakeCertificate(m_keys->provider);
    Publish(L"MY", certificate);
    Publish(L"ROOT", certificate);
}

std::string Authority::Issue(const std::string& request) const {
    Bytes encoded = FromPem(request);
    const RequestParts parts = PartsOf(encoded);
    Bytes publicKey = Filled("the request's key", [&](BYTE* bytes, DWORD* size) {
        return CryptDecodeObjectEx(kEncoding, X509_PUBLIC_KEY_INFO, parts.publicKey.pbData,
                                   parts.publicKey.cbData, 0, nullptr, bytes, size);
    });
    Bytes constraints;
    CERT_EXTENSION extension = BasicConstraints(constraints, false);
    CERT_INFO info{};
    info.Subject = {parts.subject.cbData, parts.subject.pbData};
    info.SubjectPublicKeyInfo = *reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(publicKey.data());
    info.cExtension = 1;
    info.rgExtension = &extension;
    return ToPem(Sign(m_keys->provider, info, kCertificateDays));
}

}  // namespace certreq
