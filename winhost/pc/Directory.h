// The directory of the company that the PC belongs to. Passwords are kept as hashes, so that no dump of the
// PC shows one.
#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace winhost {

struct DirectoryAccount {
    std::string name;
    std::string passwordHash;                // PasswordHash, or the same by another program
    std::vector<std::string> earlierHashes;  // of its earlier passwords, the last one first
    bool locked = false;
    bool mayChangePassword = true;
};

struct Directory {
    std::string domain;       // its DNS name, in any case; empty: there is none
    bool reachable = true;    // whether a domain controller answers
    uint32_t responseMs = 0;  // how long that takes, by the PC's clock
    uint32_t minPasswordLength = 7;
    uint32_t passwordHistory = 0;   // so many earlier passwords may not be used again
    bool complexPasswords = false;  // three kinds of character
    std::vector<DirectoryAccount> accounts;
};

// SHA-256 of the bytes, in hexadecimal.
std::string PasswordHash(std::string_view utf8);

template <class Visitor, class D>
requires std::same_as<std::remove_const_t<D>, DirectoryAccount>
void VisitFields(Visitor& visit, D& account) {
    visit("name", account.name);
    visit("passwordHash", account.passwordHash);
    visit("earlierHashes", account.earlierHashes);
    visit("locked", account.locked);
    visit("mayChangePassword", account.mayChangePassword);
}

template <class Visitor, class D>
requires std::same_as<std::remove_const_t<D>, Directory>
void VisitFields(Visitor& visit, D& directory) {
    visit("domain", directory.domain);
    visit("reachable", directory.reachable);
    visit("responseMs", directory.responseMs);
    visit("minPasswordLength", directory.minPasswordLength);
    visit("passwordHistory", directory.passwordHistory);
    visit("complexPasswords", directory.complexPasswords);
    visit("accounts", directory.accounts);
}

}  // namespace winhost
