// Bytes from hexadecimal text, and to Base64.
#include <openssl/evp.h>
#include <wincrypt.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"

using winhost::Fail;

namespace {

constexpr size_t kBytesInLine = 48;  // 64 characters

// False for a text that is not pairs of digits, with blanks before, between and behind them.
bool ReadHex(std::string_view text, std::vector<BYTE>& bytes) {
    constexpr size_t kPair = 2;
    for (size_t at = 0; (at = text.find_first_not_of(" \t\r\n", at)) != std::string_view::npos; at += kPair) {
        const std::string_view pair = text.substr(at, kPair);
        const auto read = std::from_chars(pair.data(), pair.data() + pair.size(), bytes.emplace_back(), 16);
        if (pair.size() != kPair || read.ptr != pair.data() + kPair) return false;
    }
    return !bytes.empty();
}

std::string Base64(const BYTE* bytes, size_t size) {
    std::string text(4 * ((size + 2) / 3) + 1, '\0');
    text.resize(static_cast<size_t>(
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes, static_cast<int>(size))));
    return text;
}

std::string WithHeader(const BYTE* bytes, size_t size) {
    std::string text = "-----BEGIN CERTIFICATE-----\r\n";
    for (size_t at = 0; at < size; at += kBytesInLine)
        text += Base64(bytes + at, std::min(kBytesInLine, size - at)) + "\r\n";
    return text + "-----END CERTIFICATE-----\r\n";
}

}  // namespace

BOOL CryptStringToBinaryA(LPCSTR pszString, DWORD cchString, DWORD dwFlags, BYTE* pbBinary, DWORD* pcbBinary,
                          DWORD* pdwSkip, DWORD* pdwFlags) {
    WINHOST_GATE("CryptStringToBinaryA", FALSE);
    if (!pszString || !pcbBinary || dwFlags != CRYPT_STRING_HEX_ANY) return Fail(ERROR_INVALID_PARAMETER);
    std::vector<BYTE> bytes;
    if (!ReadHex({pszString, cchString ? cchString : std::strlen(pszString)}, bytes))
        return Fail(ERROR_INVALID_DATA);
    const DWORD room = *pcbBinary;
    *pcbBinary = static_cast<DWORD>(bytes.size());
    if (pbBinary && room < bytes.size()) return Fail(ERROR_MORE_DATA);
    if (pbBinary) std::memcpy(pbBinary, bytes.data(), bytes.size());
    if (pdwSkip) *pdwSkip = 0;
    if (pdwFlags) *pdwFlags = CRYPT_STRING_HEX_ANY;
    return TRUE;
}

BOOL CryptBinaryToStringA(const BYTE* pbBinary, DWORD cbBinary, DWORD dwFlags, LPSTR pszString,
                          DWORD* pcchString) {
    WINHOST_GATE("CryptBinaryToStringA", FALSE);
    const bool inOneLine = dwFlags == (CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF);
    if (!pbBinary || cbBinary == 0 || !pcchString || (dwFlags != CRYPT_STRING_BASE64HEADER && !inOneLine))
        return Fail(ERROR_INVALID_PARAMETER);
    const std::string text = inOneLine ? Base64(pbBinary, cbBinary) : WithHeader(pbBinary, cbBinary);
    const DWORD room = *pcchString;
    *pcchString = static_cast<DWORD>(text.size() + 1);
    if (!pszString) return TRUE;
    if (room < text.size() + 1) return Fail(ERROR_MORE_DATA);
    std::memcpy(pszString, text.c_str(), text.size() + 1);
    *pcchString = static_cast<DWORD>(text.size());
    return TRUE;
}
