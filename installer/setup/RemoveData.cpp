#include "installer/setup/RemoveData.h"

#include <winsock2.h>
#include <windows.h>

#include <filesystem>

#include "base/FilesystemPath.h"
#include "base/SecureFolder.h"

namespace {

constexpr const char* kFiles[] = {"\\cloud.txt", "\\zel_json_data.txt", "\\terminate.txt"};
constexpr const char* kFolders[] = {"\\certs", "\\CSRCert"};

bool Exists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(FilesystemPath(path), ignored));
}

bool RemoveFile(const std::string& path) {
    return !Exists(path) || DeleteFileA(path.c_str());
}

// The service creates no folders in these.
bool RemoveFolder(const std::string& path) {
    if (!Exists(path)) return true;
    if (!SecureFolder(path, Contents::Secret).isSecure) return false;
    bool isEmpty = true;
    try {
        for (const auto& entry : std::filesystem::directory_iterator(FilesystemPath(path)))
            isEmpty = RemoveFile(path + "\\" + entry.path().filename().string()) && isEmpty;
    } catch (const std::filesystem::filesystem_error&) {
        return false;
    }
    return isEmpty && RemoveDirectoryA(path.c_str());
}

}  // namespace

bool RemoveData(const std::string& programData) {
    const std::string maker = programData + "\\Tarvix";
    const std::string folder = maker + "\\Manageability";
    if (!Exists(folder)) return true;
    // Nothing is deleted where a user could have put a link.
    if (!SecureFolder(maker, Contents::Keep).isSecure ||
        !SecureFolder(folder, Contents::RemoveUsers).isSecure)
        return false;
    bool isDone = true;
    for (const char* name : kFiles)
        isDone = RemoveFile(folder + name) && isDone;
    for (const char* name : kFolders)
        isDone = RemoveFolder(folder + name) && isDone;
    const DWORD error = GetLastError();
    // Succeed only without logs, and without files of other programs.
    if (RemoveDirectoryA(folder.c_str())) RemoveDirectoryA(maker.c_str());
    SetLastError(error);
    return isDone;
}
