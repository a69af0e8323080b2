#include "base/SecureFolder.h"

#include <winsock2.h>
#include <windows.h>
#include <shlobj.h>

#include <filesystem>

#include "base/FileAccess.h"
#include "base/FileGuard.h"
#include "base/FilesystemPath.h"

namespace {

// A user may create the folder again and again, but not for ever.
constexpr int kMostAttempts = 8;

PSECURITY_DESCRIPTOR DescriptorFor(Contents contents) {
    return contents == Contents::Secret ? SecretDescriptor() : ProtectedDescriptor();
}

int CreateFolder(const std::string& path, Contents contents) {
    SECURITY_ATTRIBUTES attributes{sizeof attributes, DescriptorFor(contents), FALSE};
    return SHCreateDirectoryExA(nullptr, path.c_str(), &attributes);
}

bool RenameAside(const std::string& path, std::string& remark) {
    // No user can occupy all names in advance that begin with the time.
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    for (int i = 0; i < kMostAttempts; ++i) {
        const std::string aside = path + ".replaced-" + std::to_string(now.QuadPart + i);
        if (MoveFileA(path.c_str(), aside.c_str())) {
            remark = "could be changed by users and is renamed to " + aside;
            return true;
        }
        if (GetLastError() != ERROR_ALREADY_EXISTS) return false;
    }
    return false;
}

bool RemoveWhatUsersPut(const std::string& folder) {
    try {
        for (const auto& entry : std::filesystem::directory_iterator(FilesystemPath(folder)))
            if (RemoveUnlessTrusted(folder + "\\" + entry.path().filename().string()) == Removal::Failed)
                return false;
        return true;
    } catch (const std::filesystem::filesystem_error&) {
        // Also for a name that has no narrow form.
        return false;
    }
}

bool Protect(HANDLE folder, Contents contents) {
    return SetKernelObjectSecurity(folder, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                   DescriptorFor(contents));
}

enum class State { Secure, Changed, Stuck };

// Checks what is there. Changed means that it is to be created or checked again.
State CheckOrChange(const std::string& path, Contents contents, std::string& remark) {
    UniqueFileHandle folder = OpenInPlace(path, READ_CONTROL | WRITE_DAC | FILE_READ_ATTRIBUTES);
    FileFacts facts;
    if (!folder) {
        // Its owner keeps even the system out.
        if (GetLastError() == ERROR_ACCESS_DENIED && RenameAside(path, remark)) return State::Changed;
        return State::Stuck;
    }
    if (!Examine(folder.Get(), facts)) return State::Stuck;
    if (!facts.isFolder && !facts.isLink) {
        SetLastError(ERROR_DIRECTORY);
        return State::Stuck;
    }
    if (facts.IsTrusted()) {
        if (contents != Contents::Secret || !facts.usersRead) return State::Secure;
        if (!Protect(folder.Get(), contents)) return State::Stuck;
        remark = "could be read by users and is protected";
        return State::Changed;
    }
    if (facts.isLink) {
        folder.Reset();
        if (!RemoveInPlace(path, facts)) return State::Stuck;
        remark = "was a link and is removed";
        return State::Changed;
    }
    if (facts.control == Control::UsersWrite && Protect(folder.Get(), contents) &&
        (contents == Contents::Keep || RemoveWhatUsersPut(path))) {
        remark = "could be written to by users and is protected";
        folder.Reset();
        // Succeeds for an empty folder only.
        RemoveDirectoryA(path.c_str());
        return State::Changed;
    }
    folder.Reset();
    return RenameAside(path, remark) ? State::Changed : State::Stuck;
}

}  // namespace

SecuredFolder SecureFolder(const std::string& path, Contents contents) {
    SecuredFolder result;
    for (int i = 0; i < kMostAttempts; ++i) {
        const int error = CreateFolder(path, contents);
        result.isSecure = error == ERROR_SUCCESS;
        if (result.isSecure) return result;
        SetLastError(error);
        if (error != ERROR_ALREADY_EXISTS && error != ERROR_FILE_EXISTS) return result;
        const State state = CheckOrChange(path, contents, result.remark);
        result.isSecure = state == State::Secure;
        if (state != State::Changed) return result;
    }
    return result;
}
