// Files and folders by their Windows paths.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include <fileapi.h>
#include <shlobj.h>
#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/files/DiskFile.h"
#include "winhost/files/FileErrors.h"
#include "winhost/files/FileSecurity.h"
#include "winhost/files/FileUse.h"
#include "winhost/pc/Pc.h"

using winhost::Finish;
using winhost::IsFolder;

namespace {

std::string HostPath(const std::string& path) {
    return winhost::Pc::Instance().HostPath(path);
}

// Removes the link and leaves the folder where it leads to alone.
DWORD RemoveFolder(const std::string& path) {
    if (const DWORD error = winhost::MayRemove(path)) return error;
    struct stat status;
    const bool isLink = lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
    if (isLink && !IsFolder(path)) return ERROR_DIRECTORY;
    if ((isLink ? unlink(path.c_str()) : rmdir(path.c_str())) == 0) return ERROR_SUCCESS;
    return errno == ENOTDIR && !isLink && lstat(path.c_str(), &status) == 0
               ? static_cast<DWORD>(ERROR_DIRECTORY)
               : winhost::FileErrorOf(errno, path);
}

DWORD Delete(const std::string& path) {
    // A link to a folder is a folder on Windows.
    if (IsFolder(path) || winhost::IsReadOnly(path)) return ERROR_ACCESS_DENIED;
    if (const DWORD error = winhost::MayRemove(path)) return error;
    if (winhost::IsRunning(path)) return ERROR_ACCESS_DENIED;
    return unlink(path.c_str()) == 0 ? static_cast<DWORD>(ERROR_SUCCESS) : winhost::FileErrorOf(errno, path);
}

DWORD Move(const std::string& from, const std::string& to) {
    if (const DWORD error = winhost::MayRemove(from)) return error;
    if (const DWORD error = winhost::MayCreate(to, IsFolder(from))) return error;
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return ERROR_SUCCESS;
    return winhost::FileErrorOf(errno, access(from.c_str(), F_OK) == 0 ? to : from);
}

DWORD Replace(const std::string& from, const std::string& to) {
    struct stat status;
    if (lstat(to.c_str(), &status) != 0) return Move(from, to);
    if (IsFolder(from)) return ERROR_NOT_SUPPORTED;
    // A link to a folder is a folder on Windows.
    if (IsFolder(to) || winhost::IsReadOnly(to) || winhost::IsRunning(to)) return ERROR_ACCESS_DENIED;
    if (const DWORD error = winhost::MayRemove(from)) return error;
    if (const DWORD error = winhost::MayRemove(to)) return error;
    if (const DWORD error = winhost::MayCreate(to, false)) return error;
    if (rename(from.c_str(), to.c_str()) == 0) return ERROR_SUCCESS;
    return winhost::FileErrorOf(errno, access(from.c_str(), F_OK) == 0 ? to : from);
}

// The folders that lead to it are made where they are missing; 0 also for those that are there.
DWORD MakeFolders(const std::string& path, const void* descriptor) {
    const size_t last = path.find_last_of("\\/");
    // Behind the drive alone: drives are not made.
    if (last > 2) {
        const DWORD error = MakeFolders(path.substr(0, last), descriptor);
        if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS) return error;
    }
    const std::string hostPath = HostPath(path);
    struct stat status;
    if (lstat(hostPath.c_str(), &status) != 0)
        if (const DWORD error = winhost::MayCreate(hostPath, true)) return error;
    if (mkdir(hostPath.c_str(), 0777) == 0) {
        const DWORD error = winhost::StoreInitialSecurity(hostPath, descriptor);
        if (error != ERROR_SUCCESS) rmdir(hostPath.c_str());
        return error;
    }
    if (errno == EEXIST) return IsFolder(hostPath) ? ERROR_ALREADY_EXISTS : ERROR_FILE_EXISTS;
    return winhost::FileErrorOf(errno, hostPath);
}

}  // namespace

BOOL DeleteFileA(LPCSTR path) {
    WINHOST_GATE("DeleteFileA", FALSE);
    return Finish(Delete(HostPath(path)));
}

BOOL RemoveDirectoryA(LPCSTR path) {
    WINHOST_GATE("RemoveDirectoryA", FALSE);
    return Finish(RemoveFolder(HostPath(path)));
}

BOOL MoveFileA(LPCSTR from, LPCSTR to) {
    WINHOST_GATE("MoveFileA", FALSE);
    return Finish(Move(HostPath(from), HostPath(to)));
}

BOOL MoveFileExA(LPCSTR from, LPCSTR to, DWORD flags) {
    WINHOST_GATE("MoveFileExA", FALSE);
    if (flags & ~DWORD{MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH})
        return winhost::Fail(ERROR_NOT_SUPPORTED);
    const bool replaces = flags & MOVEFILE_REPLACE_EXISTING;
    return Finish((replaces ? Replace : Move)(HostPath(from), HostPath(to)));
}

int SHCreateDirectoryExA(HWND, LPCSTR path, const SECURITY_ATTRIBUTES* attributes) {
    WINHOST_GATE_CODE("SHCreateDirectoryExA");
    std::string folder = path ? path : "";
    if (!winhost::IsOnDrive(folder)) return ERROR_BAD_PATHNAME;
    while (folder.size() > 3 && (folder.back() == '\\' || folder.back() == '/'))
        folder.pop_back();
    const DWORD error = MakeFolders(folder, attributes ? attributes->lpSecurityDescriptor : nullptr);
    SetLastError(error);
    return static_cast<int>(error);
}
