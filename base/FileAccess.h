// Who may change a file or folder. The service runs as LocalSystem, so it trusts only what ordinary users
// cannot change.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

#include "base/Handles.h"

// Opens a file or folder itself, never where a link leads to.
UniqueFileHandle OpenInPlace(const std::string& path, DWORD access, DWORD disposition = OPEN_EXISTING);

enum class Control {
    System,      // only SYSTEM, administrators and the process's own user can change it
    UsersWrite,  // it belongs to the system, and others may write to it or create files in it
    Users        // it belongs to someone else, or someone else may delete it or change its rights
};

struct FileFacts {
    bool isLink = false;  // any reparse point
    bool isFolder = false;
    bool hasOtherNames = false;  // hard links
    Control control = Control::Users;
    bool usersRead = true;  // others than SYSTEM, administrators and the process's own user

    bool IsTrusted() const { return !isLink && control == Control::System; }
};

// Finds the facts of an open file or folder, which needs READ_CONTROL and FILE_READ_ATTRIBUTES. False with
// the last error.
bool Examine(HANDLE file, FileFacts& facts);

// The owner and access list of the service's folders: they belong to the administrators, who have full access
// as SYSTEM does; users read. Files in the folder inherit this, and nothing is inherited from above. The
// descriptor lives as long as the process.
PSECURITY_DESCRIPTOR ProtectedDescriptor();

// The same for what users must not even read.
PSECURITY_DESCRIPTOR SecretDescriptor();
