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
    std::string passwordHash;  // PasswordHash, or the same by another program
    bool locked = false;
};
WINHOST_FIELDS(DirectoryAccount, name, passwordHash, locked)

struct Directory {
    std::string domain;       // its DNS name, in any case; empty: there is none
    bool reachable = true;    // whether a domain controller answers
    uint32_t responseMs = 0;  // how long that takes, by the PC's clock
    std::vector<DirectoryAccount> accounts;
};
WINHOST_FIELDS(Directory, domain, reachable, responseMs, accounts)

// SHA-256 of the bytes, in hexadecimal.
std::string PasswordHash(std::string_view utf8);

}  // namespace winhost
