// Certificates and their stores, and the conversion of bytes from and to text.
#pragma once

#include <windows.h>

typedef ULONG_PTR HCRYPTPROV_LEGACY;
typedef void* HCERTSTORE;

#define X509_ASN_ENCODING 0x00000001
#define PKCS_7_ASN_ENCODING 0x00010000

#define CERT_STORE_PROV_SYSTEM_W ((LPCSTR)10)
#define CERT_STORE_READONLY_FLAG 0x00008000
#define CERT_SYSTEM_STORE_LOCAL_MACHINE 0x00020000

#define CERT_FIND_SHA1_HASH 0x00010000
#define CERT_FIND_SUBJECT_STR_A 0x00070007
#define CERT_NAME_SIMPLE_DISPLAY_TYPE 4

#define CERT_TRUST_NO_ERROR 0x00000000
#define CERT_TRUST_IS_NOT_SIGNATURE_VALID 0x00000008
#define CERT_TRUST_IS_UNTRUSTED_ROOT 0x00000020
#define CERT_TRUST_INVALID_EXTENSION 0x00000100
#define CERT_TRUST_IS_PARTIAL_CHAIN 0x00010000

#define CRYPT_STRING_BASE64HEADER 0x00000000
#define CRYPT_STRING_BASE64 0x00000001
#define CRYPT_STRING_NOCRLF 0x40000000
#define CRYPT_STRING_HEX_ANY 0x00000008

typedef struct _CRYPT_DATA_BLOB {
    DWORD cbData;
    BYTE* pbData;
} CRYPT_DATA_BLOB, CRYPT_HASH_BLOB;

typedef struct _CERT_INFO CERT_INFO;

typedef struct _CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    CERT_INFO* pCertInfo;  // null: not parsed
    HCERTSTORE hCertStore;
} CERT_CONTEXT;
typedef const CERT_CONTEXT* PCCERT_CONTEXT;

typedef void* HCERTCHAINENGINE;

typedef struct _CTL_USAGE {
    DWORD cUsageIdentifier;
    LPSTR* rgpszUsageIdentifier;
} CTL_USAGE, CERT_ENHKEY_USAGE, *PCERT_ENHKEY_USAGE;

typedef struct _CERT_USAGE_MATCH {
    DWORD dwType;
    CERT_ENHKEY_USAGE Usage;
} CERT_USAGE_MATCH;

typedef struct _CERT_CHAIN_PARA {
    DWORD cbSize;
    CERT_USAGE_MATCH RequestedUsage;
} CERT_CHAIN_PARA, *PCERT_CHAIN_PARA;

typedef struct _CERT_TRUST_STATUS {
    DWORD dwErrorStatus;
    DWORD dwInfoStatus;  // always 0
} CERT_TRUST_STATUS;

typedef struct _CERT_CHAIN_ELEMENT {
    DWORD cbSize;
    PCCERT_CONTEXT pCertContext;
    CERT_TRUST_STATUS TrustStatus;                  // of the whole chain
    struct _CERT_REVOCATION_INFO* pRevocationInfo;  // null, as the next three
    PCERT_ENHKEY_USAGE pIssuanceUsage;
    PCERT_ENHKEY_USAGE pApplicationUsage;
    LPCWSTR pwszExtendedErrorInfo;
} CERT_CHAIN_ELEMENT, *PCERT_CHAIN_ELEMENT;

typedef struct _CERT_SIMPLE_CHAIN {
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cElement;
    PCERT_CHAIN_ELEMENT* rgpElement;
    struct _CERT_TRUST_LIST_INFO* pTrustListInfo;  // null
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
} CERT_SIMPLE_CHAIN, *PCERT_SIMPLE_CHAIN;

typedef struct _CERT_CHAIN_CONTEXT {
    DWORD cbSize;
    CERT_TRUST_STATUS TrustStatus;
    DWORD cChain;
    PCERT_SIMPLE_CHAIN* rgpChain;
    DWORD cLowerQualityChainContext;  // 0
    const struct _CERT_CHAIN_CONTEXT** rgpLowerQualityChainContext;
    BOOL fHasRevocationFreshnessTime;
    DWORD dwRevocationFreshnessTime;
    DWORD dwCreateFlags;
    GUID ChainId;
} CERT_CHAIN_CONTEXT;
typedef const CERT_CHAIN_CONTEXT* PCCERT_CHAIN_CONTEXT;

// The store "ROOT", with the certificates of the PC's description. A store of another name does not exist:
// null, and ERROR_FILE_NOT_FOUND.
HCERTSTORE WINAPI CertOpenSystemStoreA(HCRYPTPROV_LEGACY hProv, LPCSTR szSubsystemProtocol);
// The machine's stores "MY", "CA" and "ROOT", in any case, with the certificates of the PC's description: by
// CERT_STORE_PROV_SYSTEM_W with CERT_SYSTEM_STORE_LOCAL_MACHINE and CERT_STORE_READONLY_FLAG. Another
// provider or store: null, and ERROR_FILE_NOT_FOUND. Other flags: ERROR_INVALID_PARAMETER.
HCERTSTORE WINAPI CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType, HCRYPTPROV_LEGACY hCryptProv,
                                DWORD dwFlags, const void* pvPara);
BOOL WINAPI CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags);
// By CERT_FIND_SHA1_HASH, whose parameter is a CRYPT_HASH_BLOB, or by CERT_FIND_SUBJECT_STR_A, whose
// parameter is a text that the subject contains: the values of its parts, each but the first behind ", ", a
// value with special characters in quotes. Letters from A to Z match in any case; an empty text or null
// matches every certificate. Null, and CRYPT_E_NOT_FOUND, when there is none, or none behind
// pPrevCertContext, which is freed. CertFreeCertificateContext frees the result, which outlives the store.
PCCERT_CONTEXT WINAPI CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                 DWORD dwFindFlags, DWORD dwFindType, const void* pvFindPara,
                                                 PCCERT_CONTEXT pPrevCertContext);
BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);
// The name of the subject, cut to the buffer. Returns its length with the NUL: 1 when there is no name.
DWORD WINAPI CertGetNameStringA(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags, void* pvTypePara,
                                LPSTR pszNameString, DWORD cchNameString);
// The chain from the certificate to a self-signed one, or as far as it leads. Issuers are searched for in the
// additional store and in "CA", "MY" and "ROOT"; the roots of "ROOT" are trusted. Validity times are not
// checked. A chain that is not trusted is a success, and its status says why. An engine, a time, flags and
// requested usages fail with ERROR_INVALID_PARAMETER. The elements' contexts belong to the chain.
BOOL WINAPI CertGetCertificateChain(HCERTCHAINENGINE hChainEngine, PCCERT_CONTEXT pCertContext,
                                    FILETIME* pTime, HCERTSTORE hAdditionalStore, PCERT_CHAIN_PARA pChainPara,
                                    DWORD dwFlags, LPVOID pvReserved, PCCERT_CHAIN_CONTEXT* ppChainContext);
void WINAPI CertFreeCertificateChain(PCCERT_CHAIN_CONTEXT pChainContext);
// Hexadecimal digits, with blanks between them. ERROR_INVALID_DATA for other text, ERROR_MORE_DATA when the
// buffer is too small. A cchString of 0 means up to the NUL.
BOOL WINAPI CryptStringToBinaryA(LPCSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary,
                                 DWORD* pcbBinary, DWORD* pdwSkip, DWORD* pdwFlags);
// Base64 in lines of 64 characters between a header and an end, each line with CR and LF; or in one line
// without an end, for CRYPT_STRING_BASE64 with CRYPT_STRING_NOCRLF. Without a buffer
// *pcchString is the size that is needed, with the NUL; with one it is the length without it.
BOOL WINAPI CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPSTR pszString,
                                 DWORD* pcchString);
