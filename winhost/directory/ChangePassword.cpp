// The password of an account in the directory.
#include <lm.h>
#include <openssl/evp.h>
#include <strings.h>
#include <winerror.h>

#include <algorithm>

#include "testbed/Utf8.h"
#include "winhost/core/Clock.h"
#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"

using winhost::Directory;
using winhost::DirectoryAccount;
using winhost::Pc;

namespace {

constexpr DWORD kInvalidPassword = 86, kNoDomainInformation = 1351, kAccountLocked = 1909;
constexpr size_t kShortestPassword = 7;

bool IsSameName(const std::string& one, const std::string& other) {
    return strcasecmp(one.c_str(), other.c_str()) == 0;
}

DWORD Change(Directory& directory, const std::string& user, const std::wstring& oldPassword,
             const std::wstring& newPassword) {
    const auto account =
        std::find_if(directory.accounts.begin(), directory.accounts.end(),
                     [&](const DirectoryAccount& known) { return IsSameName(known.name, user); });
    if (account == directory.accounts.end()) return NERR_UserNotFound;
    if (account->locked) return kAccountLocked;
    if (account->passwordHash != winhost::PasswordHash(testbed::ToUtf8(oldPassword))) return kInvalidPassword;
    if (newPassword.size() < kShortestPassword) return NERR_PasswordTooShort;
    account->passwordHash = winhost::PasswordHash(testbed::ToUtf8(newPassword));
    return NERR_Success;
}

DWORD Answer(const std::string& domain, const std::string& user, const std::wstring& oldPassword,
             const std::wstring& newPassword) {
    if (domain.empty()) return NERR_UserNotFound;
    const uint32_t responseMs = Pc::Instance().Get(&winhost::PcDescription::directory).responseMs;
    winhost::Clock& clock = winhost::Clock::Instance();
    if (responseMs) clock.SleepUntil(clock.DeadlineIn(responseMs));
    DWORD result = kNoDomainInformation;
    Pc::Instance().Change([&](winhost::PcDescription& pc) {
        if (pc.directory.reachable && IsSameName(pc.directory.domain, domain))
            result = Change(pc.directory, user, oldPassword, newPassword);
    });
    return result;
}

}  // namespace

namespace winhost {

std::string PasswordHash(std::string_view utf8) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(utf8.data(), utf8.size(), digest, &size, EVP_sha256(), nullptr);
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        constexpr char kDigits[] = "0123456789abcdef";
        (text += kDigits[digest[i] >> 4]) += kDigits[digest[i] & 15];
    }
    return text;
}

}  // namespace winhost

NET_API_STATUS NetUserChangePassword(LPCWSTR domainname, LPCWSTR username, LPCWSTR oldpassword,
                                     LPCWSTR newpassword) {
    WINHOST_GATE_CODE("NetUserChangePassword");
    if (!username || !oldpassword || !newpassword) return ERROR_INVALID_PARAMETER;
    const std::string domain = domainname ? testbed::ToUtf8(domainname) : "";
    const std::string user = testbed::ToUtf8(username);
    const DWORD result = Answer(domain, user, oldpassword, newpassword);
    Pc::Instance().Record(winhost::PasswordChange{domain, user, result});
    return result;
}
