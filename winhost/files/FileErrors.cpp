#include "winhost/files/FileErrors.h"

#include <cerrno>
#include <filesystem>

#include <winerror.h>

namespace winhost {

DWORD FileErrorOf(int error, const std::string& hostPath) {
    if (error == ENOENT) {
        std::error_code ignored;
        const auto folder = std::filesystem::path(hostPath).parent_path();
        const bool folderExists = folder.empty() || std::filesystem::is_directory(folder, ignored);
        return folderExists ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
    }
    constexpr struct {
        int posix;
        DWORD windows;
    } kErrors[] = {
        {ENOTDIR, ERROR_PATH_NOT_FOUND},
        {EACCES, ERROR_ACCESS_DENIED},
        {EPERM, ERROR_ACCESS_DENIED},
        {EISDIR, ERROR_ACCESS_DENIED},
        {EEXIST, ERROR_ALREADY_EXISTS},
        {ENOTEMPTY, ERROR_DIR_NOT_EMPTY},
        {EBUSY, ERROR_SHARING_VIOLATION},
        {ETXTBSY, ERROR_SHARING_VIOLATION},
        {ENOSPC, ERROR_DISK_FULL},
        {EDQUOT, ERROR_DISK_FULL},
        {EROFS, ERROR_WRITE_PROTECT},
        {EXDEV, ERROR_NOT_SAME_DEVICE},
        {EMFILE, ERROR_TOO_MANY_OPEN_FILES},
        {ENFILE, ERROR_TOO_MANY_OPEN_FILES},
        {ENAMETOOLONG, ERROR_FILENAME_EXCED_RANGE},
        {ENOMEM, ERROR_NOT_ENOUGH_MEMORY},
        {EINVAL, ERROR_INVALID_NAME},
    };
    for (const auto& row : kErrors)
        if (row.posix == error) return row.windows;
    return ERROR_GEN_FAILURE;
}

}  // namespace winhost
