// Owners and access lists of the PC's files and folders.
//
// They are kept in an extended attribute of the host's file. A file without one, which no call has created,
// is the system's, with the rights that it inherits from its folder; the drives have the rights that Windows
// gives to %PROGRAMDATA%, where every user may create files and folders.
#pragma once

#include <string>
#include <vector>

#include <winbase.h>

namespace winhost {

struct AccessEntry {
    BYTE type, flags;
    DWORD mask;
    std::string sid;  // its bytes
};

struct FileSecurity {
    std::string owner;  // the bytes of the SID
    bool isProtected = false;
    std::vector<AccessEntry> entries;

    // In one block of memory, with offsets.
    std::string Bytes() const;
};

// The user's own SID. SYSTEM is in the group of the administrators, anyone else in that of the users.
std::string SidOfUser(const std::string& user);
// Who owns what the user creates.
std::string DefaultOwner(const std::string& user);
// Whether the user may name this SID as an owner.
bool MayOwn(const std::string& user, const std::string& sid);

// Of a descriptor in either form. Group and SACL are ignored. False for one that is malformed.
bool ParseSecurity(const void* descriptor, FileSecurity& security);

// `path` is the host's; a link at its end is not followed. With a descriptor, of that file, which may have
// left its path since.
FileSecurity SecurityOf(const std::string& path, int descriptor = -1);
// Fails with ERROR_NOT_SUPPORTED where the host's file system has no such attributes, and for links.
DWORD StoreSecurity(const std::string& path, const FileSecurity& security, int descriptor = -1);
// What the PC's user creates there has these owner and rights: those of `descriptor`, as far as it holds any,
// and else those that it inherits.
DWORD StoreInitialSecurity(const std::string& path, const void* descriptor);

// Whether the PC's user has all of this access, GENERIC_* included, and how much it has.
bool IsGranted(const FileSecurity& security, DWORD access);
DWORD ExpandGeneric(DWORD access);
// ERROR_ACCESS_DENIED where the PC's user may not create a file or folder at this path, or may not remove
// what is there.
DWORD MayCreate(const std::string& path, bool isFolder);
DWORD MayRemove(const std::string& path);

}  // namespace winhost
