// Certificates and their stores, and the conversion of bytes from and to text.
#pragma once

#include <windows.h>

typedef ULONG_PTR HCRYPTPROV_LEGACY;
typedef void* HCERTSTORE;

#define X509_ASN_ENCODING 0x00000001
#define PKCS_7_ASN_ENCODING 0x00010000

#define CERT_FIND_SHA1_HASH 0x00010000
#define CERT_NAME_SIMPLE_DISPLAY_TYPE 4

#define CRYPT_STRING_BASE64HEADER 0x00000000
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

// The store "ROOT", with the certificates of the PC's description. A store of another name does not exist:
// null, and ERROR_FILE_NOT_FOUND.
HCERTSTORE WINAPI CertOpenSystemStoreA(HCRYPTPROV_LEGACY hProv, LPCSTR szSubsystemProtocol);
BOOL WINAPI CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags);
// By CERT_FIND_SHA1_HASH, whose parameter is a CRYPT_HASH_BLOB. Null, and CRYPT_E_NOT_FOUND, when there is
// none. Frees pPrevCertContext. CertFreeCertificateContext frees the result, which outlives the store.
PCCERT_CONTEXT WINAPI CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                 DWORD dwFindFlags, DWORD dwFindType, const void* pvFindPara,
                                                 PCCERT_CONTEXT pPrevCertContext);
BOOL WINAPI CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);
// The name of the subject, cut to the buffer. Returns its length with the NUL: 1 when there is no name.
DWORD WINAPI CertGetNameStringA(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags, void* pvTypePara,
                                LPSTR pszNameString, DWORD cchNameString);
// Hexadecimal digits, with blanks between them. ERROR_INVALID_DATA for other text, ERROR_MORE_DATA when the
// buffer is too small. A cchString of 0 means up to the NUL.
BOOL WINAPI CryptStringToBinaryA(LPCSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary,
                                 DWORD* pcbBinary, DWORD* pdwSkip, DWORD* pdwFlags);
// Base64 in lines of 64 characters between a header and an end, each line with CR and LF. Without a buffer
// *pcchString is the size that is needed, with the NUL; with one it is the length without it.
BOOL WINAPI CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPSTR pszString,
                                 DWORD* pcchString);
