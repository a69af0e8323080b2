#include "winhost/files/DiskFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <cstring>

#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/files/FileErrors.h"
#include "winhost/files/FileSecurity.h"
#include "winhost/pc/Pc.h"

using winhost::DiskFile;
using winhost::Fail;
using winhost::FileSecurity;
using winhost::Finish;
using winhost::HandleTable;

namespace winhost {
namespace {

// A file's descriptor that can be asked about it and nothing else.
testbed::Descriptor OpenToAsk(const std::string& path) {
    return testbed::Descriptor(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
}

DWORD Create(const std::string& path, const SECURITY_ATTRIBUTES* attributes) {
    if (const DWORD error = MayCreate(path, false)) return error;
    const testbed::Descriptor file(
        open(path.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    if (!file) return errno == EEXIST ? static_cast<DWORD>(ERROR_SUCCESS) : FileErrorOf(errno, path);
    return StoreInitialSecurity(path, attributes ? attributes->lpSecurityDescriptor : nullptr);
}

DWORD Unopened(DWORD disposition, DWORD flags) {
    constexpr DWORD kNeeded = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;
    const bool known = disposition == OPEN_EXISTING || disposition == OPEN_ALWAYS;
    return known && (flags & ~DWORD{FILE_ATTRIBUTE_NORMAL}) == kNeeded ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}

}  // namespace

bool IsOnDrive(const std::string& name) {
    return HasDrive(name) && name.size() > 2 && (name[2] == '\\' || name[2] == '/');
}

DWORD OpenDiskFile(const std::string& name, DWORD access, const SECURITY_ATTRIBUTES* attributes,
                   DWORD disposition, DWORD flags, std::shared_ptr<FileObject>& file, bool& existed) {
    if (const DWORD error = Unopened(disposition, flags)) return error;
    const std::string path = Pc::Instance().HostPath(name);
    testbed::Descriptor descriptor = OpenToAsk(path);
    existed = static_cast<bool>(descriptor);
    if (!existed && errno == ENOENT && disposition == OPEN_ALWAYS) {
        if (const DWORD error = Create(path, attributes)) return error;
        descriptor = OpenToAsk(path);
    }
    if (!descriptor) return FileErrorOf(errno, path);
    // The creator of a file has the access that it asks for.
    if (existed && !IsGranted(SecurityOf(path, descriptor.Get()), access)) return ERROR_ACCESS_DENIED;
    file = std::make_shared<DiskFile>(std::move(descriptor), ExpandGeneric(access), path);
    return ERROR_SUCCESS;
}

}  // namespace winhost

namespace {

FILETIME FileTime(const struct statx_timestamp& time) {
    constexpr uint64_t kSince1601 = 11'644'473'600;  // seconds to 1970
    const uint64_t ticks =
        (static_cast<uint64_t>(time.tv_sec) + kSince1601) * 10'000'000 + time.tv_nsec / 100;
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

DWORD AttributesOf(const struct statx& status, const std::string& path) {
    struct stat target;
    if (S_ISDIR(status.stx_mode)) return FILE_ATTRIBUTE_DIRECTORY;
    if (!S_ISLNK(status.stx_mode))
        return status.stx_mode & S_IWUSR ? FILE_ATTRIBUTE_ARCHIVE
                                         : FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY;
    const bool toFolder = stat(path.c_str(), &target) == 0 && S_ISDIR(target.st_mode);
    return toFolder ? FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_REPARSE_POINT;
}

constexpr SECURITY_INFORMATION kParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

// Changes the named parts of what the file has.
DWORD Merge(const DiskFile& file, SECURITY_INFORMATION parts, const FileSecurity& given,
            FileSecurity& security) {
    if (parts & OWNER_SECURITY_INFORMATION) {
        if (!file.Allows(WRITE_OWNER)) return ERROR_ACCESS_DENIED;
        if (!winhost::MayOwn(winhost::Pc::Instance().Description().userName, given.owner))
            return ERROR_INVALID_OWNER;
        security.owner = given.owner;
    }
    if (parts & (DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION)) {
        if (!file.Allows(WRITE_DAC)) return ERROR_ACCESS_DENIED;
        security.isProtected = given.isProtected || parts & PROTECTED_DACL_SECURITY_INFORMATION;
        security.entries = given.entries;
    }
    return ERROR_SUCCESS;
}

}  // namespace

BOOL GetFileInformationByHandle(HANDLE handle, LPBY_HANDLE_FILE_INFORMATION information) {
    WINHOST_GATE("GetFileInformationByHandle", FALSE);
    const auto file = HandleTable::Instance().Find<DiskFile>(handle);
    if (!file) return Fail(ERROR_INVALID_HANDLE);
    struct statx status;
    if (statx(file->Descriptor(), "", AT_EMPTY_PATH, STATX_BASIC_STATS | STATX_BTIME, &status) != 0)
        return Fail(winhost::FileErrorOf(errno, file->Path()));
    BY_HANDLE_FILE_INFORMATION result{};
    result.dwFileAttributes = AttributesOf(status, file->Path());
    result.ftCreationTime = FileTime(status.stx_btime);
    result.ftLastAccessTime = FileTime(status.stx_atime);
    result.ftLastWriteTime = FileTime(status.stx_mtime);
    result.dwVolumeSerialNumber = static_cast<DWORD>(makedev(status.stx_dev_major, status.stx_dev_minor));
    const uint64_t size = S_ISREG(status.stx_mode) ? status.stx_size : 0;
    result.nFileSizeHigh = static_cast<DWORD>(size >> 32);
    result.nFileSizeLow = static_cast<DWORD>(size);
    // A folder of Linux counts the folders in it as well.
    result.nNumberOfLinks = S_ISDIR(status.stx_mode) ? 1 : status.stx_nlink;
    result.nFileIndexHigh = static_cast<DWORD>(status.stx_ino >> 32);
    result.nFileIndexLow = static_cast<DWORD>(status.stx_ino);
    *information = result;
    return TRUE;
}

BOOL GetKernelObjectSecurity(HANDLE handle, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor,
                             DWORD length, LPDWORD needed) {
    WINHOST_GATE("GetKernelObjectSecurity", FALSE);
    const auto file = HandleTable::Instance().Find<DiskFile>(handle);
    if (!file) return Fail(ERROR_INVALID_HANDLE);
    // Both parts or nothing: the descriptor then has one form.
    if (parts != kParts) return Fail(ERROR_NOT_SUPPORTED);
    if (!file->Allows(READ_CONTROL)) return Fail(ERROR_ACCESS_DENIED);
    const std::string bytes = winhost::SecurityOf(file->Path(), file->Descriptor()).Bytes();
    *needed = static_cast<DWORD>(bytes.size());
    if (length < bytes.size()) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(descriptor, bytes.data(), bytes.size());
    return TRUE;
}

BOOL SetKernelObjectSecurity(HANDLE handle, SECURITY_INFORMATION parts, PSECURITY_DESCRIPTOR descriptor) {
    WINHOST_GATE("SetKernelObjectSecurity", FALSE);
    const auto file = HandleTable::Instance().Find<DiskFile>(handle);
    if (!file) return Fail(ERROR_INVALID_HANDLE);
    if (parts & ~(kParts | PROTECTED_DACL_SECURITY_INFORMATION)) return Fail(ERROR_NOT_SUPPORTED);
    FileSecurity security = winhost::SecurityOf(file->Path(), file->Descriptor()), given;
    if (!winhost::ParseSecurity(descriptor, given)) return Fail(ERROR_INVALID_SECURITY_DESCR);
    if (const DWORD error = Merge(*file, parts, given, security)) return Fail(error);
    return Finish(winhost::StoreSecurity(file->Path(), security, file->Descriptor()));
}
