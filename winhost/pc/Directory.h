// The directory of the company that the PC belongs to. Passwords are kept as hashes, so that no dump of the
// PC shows one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "winhost/pc/Fields.h"

namespace winhost {

struct DirectoryAccount {
    std::string name;
    std::string passwordHash;                // PasswordHash, or the same by another program
    std::vector<std::string> earlierHashes;  // of its earlier passwords, the last one first
    bool locked = false;
    bool mayChangePassword = true;
};
WINHOST_FIELDS(DirectoryAccount, name, passwordHash, earlierHashes, locked, mayChangePassword)

struct Directory {
    std::string domain;       // its DNS name, in any case; empty: there is none
    bool reachable = true;    // whether a domain controller answers
    uint32_t responseMs = 0;  // how long that takes, by the PC's clock
    uint32_t minPasswordLength = 7;
    uint32_t passwordHistory = 0;   // so many earlier passwords may not be used again
    bool complexPasswords = false;  // three kinds of character
    std::vector<DirectoryAccount> accounts;
};
WINHOST_FIELDS(Directory, domain, reachable, responseMs, minPasswordLength, passwordHistory, complexPasswords,
               accounts)

// SHA-256 of the bytes, in hexadecimal.
std::string PasswordHash(std::string_view utf8);

}  // namespace winhost
