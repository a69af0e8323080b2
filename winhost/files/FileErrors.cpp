#include "winhost/files/FileErrors.h"

#include <cerrno>
#include <filesystem>

#include <winerror.h>

namespace winhost {

DWORD FileErrorOf(int error, const std::string& hostPath) {
    switch (error) {
        case ENOENT: {
            std::error_code ignored;
            const auto folder = std::filesystem::path(hostPath).parent_path();
            const bool folderExists = folder.empty() || std::filesystem::is_directory(folder, ignored);
            return folderExists ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
        }
        case ENOTDIR:
            return ERROR_PATH_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
            return ERROR_ACCESS_DENIED;
        case EEXIST:
            return ERROR_ALREADY_EXISTS;
        case ENOTEMPTY:
            return ERROR_DIR_NOT_EMPTY;
        case EBUSY:
        case ETXTBSY:
            return ERROR_SHARING_VIOLATION;
        case ENOSPC:
        case EDQUOT:
            return ERROR_DISK_FULL;
        case EROFS:
            return ERROR_WRITE_PROTECT;
        case EXDEV:
            return ERROR_NOT_SAME_DEVICE;
        case EMFILE:
        case ENFILE:
            return ERROR_TOO_MANY_OPEN_FILES;
        case ENAMETOOLONG:
            return ERROR_FILENAME_EXCED_RANGE;
        case ENOMEM:
            return ERROR_NOT_ENOUGH_MEMORY;
        case EINVAL:
            return ERROR_INVALID_NAME;
        default:
            return ERROR_GEN_FAILURE;
    }
}

}  // namespace winhost
