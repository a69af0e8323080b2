// Folders that only the system can change.
#pragma once

#include <string>

enum class Contents {
    Keep,         // the folder is shared with other programs
    RemoveUsers,  // the folder is the service's own: what users have put there is removed
    Secret        // the same, and users may not read what is created there
};

struct SecuredFolder {
    bool isSecure = false;  // else the last error says why
    std::string remark;     // what was wrong with the folder and what was done, for the log; empty if nothing
};

// Creates the folder with the protected access list, or checks the one that is there. A folder that users may
// write to gets the protected list. A link is removed, and a folder that users own is renamed; then a new
// folder is created. Nothing is ever written to a folder that is not secure. The folder above must not let
// users delete or rename what is in it, as %PROGRAMDATA% does not.
//
// A user can hold back the service, but not mislead it: a user's folder with open files in it cannot be
// renamed. A handle that a user has opened for writing before the rights changed stays usable. It could still
// turn an empty folder into a link, so an empty folder is not repaired but removed and created anew.
SecuredFolder SecureFolder(const std::string& path, Contents contents);
