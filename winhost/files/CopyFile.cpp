// Copies of files.
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <winbase.h>

#include "testbed/Descriptor.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/files/FileErrors.h"
#include "winhost/files/FileSecurity.h"
#include "winhost/files/FileUse.h"
#include "winhost/pc/Pc.h"

using testbed::Descriptor;

namespace {

constexpr int kMostLinks = 16;

// Where the links at the end of the path lead, which need not exist.
std::string WithoutLinks(std::filesystem::path path) {
    std::error_code error;
    for (int i = 0; i < kMostLinks && std::filesystem::is_symlink(path, error); ++i)
        path = path.parent_path() / std::filesystem::read_symlink(path, error);
    return path.string();
}

DWORD CheckExisting(const std::string& from, const std::string& to, bool failIfExists) {
    std::error_code error;
    if (failIfExists) return ERROR_FILE_EXISTS;
    if (std::filesystem::equivalent(from, to, error)) return ERROR_SHARING_VIOLATION;
    if (winhost::IsReadOnly(to)) return ERROR_ACCESS_DENIED;
    if (!winhost::IsGranted(winhost::SecurityOf(to), GENERIC_WRITE)) return ERROR_ACCESS_DENIED;
    return winhost::IsRunning(to) ? ERROR_SHARING_VIOLATION : ERROR_SUCCESS;
}

// 0, or an errno.
int CopyBytes(int from, int to) {
    constexpr size_t kMostAtOnce = 1 << 30;
    ssize_t size = 0;
    do {
        size = sendfile(to, from, nullptr, kMostAtOnce);
    } while (size > 0);
    return size == 0 ? 0 : errno;
}

DWORD CopyTo(const std::string& to, bool existed, int source) {
    struct stat status;
    const Descriptor target(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!target) return winhost::FileErrorOf(errno, to);
    DWORD error = existed ? DWORD{ERROR_SUCCESS} : winhost::StoreInitialSecurity(to, nullptr);
    // Linux keeps in the mode whether the file is a program, and whether it is read-only.
    if (error == ERROR_SUCCESS &&
        (fstat(source, &status) != 0 || fchmod(target.Get(), status.st_mode & 0777) != 0))
        error = winhost::FileErrorOf(errno, to);
    if (error == ERROR_SUCCESS) {
        if (const int failure = CopyBytes(source, target.Get())) error = winhost::FileErrorOf(failure, to);
    }
    // As on Windows, a part of a copy does not stay.
    if (error != ERROR_SUCCESS) unlink(to.c_str());
    return error;
}

DWORD Copy(const std::string& givenFrom, const std::string& givenTo, bool failIfExists) {
    const std::string from = WithoutLinks(givenFrom), to = WithoutLinks(givenTo);
    if (winhost::IsFolder(from) || winhost::IsFolder(to)) return ERROR_ACCESS_DENIED;
    const Descriptor source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    if (!source) return winhost::FileErrorOf(errno, from);
    if (!winhost::IsGranted(winhost::SecurityOf(from), GENERIC_READ)) return ERROR_ACCESS_DENIED;
    const bool existed = access(to.c_str(), F_OK) == 0;
    const DWORD error = existed ? CheckExisting(from, to, failIfExists) : winhost::MayCreate(to, false);
    return error == ERROR_SUCCESS ? CopyTo(to, existed, source.Get()) : error;
}

}  // namespace

BOOL CopyFileA(LPCSTR from, LPCSTR to, BOOL failIfExists) {
    WINHOST_GATE("CopyFileA", FALSE);
    const winhost::Pc& pc = winhost::Pc::Instance();
    return winhost::Finish(Copy(pc.HostPath(from), pc.HostPath(to), failIfExists));
}
