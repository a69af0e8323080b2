#include "base/FileGuard.h"

#include "base/FilesystemPath.h"
#include "base/Log.h"

namespace {

constexpr int kMostAttempts = 4;

bool IsTrusted(const FileFacts& facts) {
    return facts.IsTrusted() && !facts.hasOtherNames;
}

}  // namespace

FileGuard::FileGuard(const std::string& path) {
    for (int i = 0; i < kMostAttempts; ++i) {
        UniqueFileHandle file = OpenInPlace(path, GENERIC_READ, OPEN_ALWAYS);
        FileFacts facts;
        if (!file || !Examine(file.Get(), facts)) return;
        if (facts.isFolder && !facts.isLink) {
            SetLastError(ERROR_ACCESS_DENIED);
            return;
        }
        if (IsTrusted(facts)) {
            m_file = std::move(file);
            return;
        }
        file.Reset();
        if (!RemoveInPlace(path, facts)) return;
        m_hasReplaced = true;
    }
}

std::ofstream OpenForWriting(const std::string& path, bool isFolderSecure, std::ios::openmode mode) {
    std::ofstream file;
    if (!isFolderSecure) return file;
    const FileGuard guard(path);
    if (guard) file.open(FilesystemPath(path), mode);
    if (file.is_open() && guard.HasReplaced()) LogWarn("%s%s", path, kReplacedFile);
    return file;
}

bool RemoveInPlace(const std::string& path, const FileFacts& facts) {
    return facts.isFolder ? RemoveDirectoryA(path.c_str()) : DeleteFileA(path.c_str());
}

Removal RemoveUnlessTrusted(const std::string& path) {
    UniqueFileHandle file = OpenInPlace(path, READ_CONTROL | FILE_READ_ATTRIBUTES);
    FileFacts facts;
    // What keeps the system out is not trusted; without facts it is taken for a file.
    if (file && !Examine(file.Get(), facts)) return Removal::Failed;
    if (file && IsTrusted(facts)) return Removal::NotNeeded;
    if (!file && GetLastError() != ERROR_ACCESS_DENIED) return Removal::Failed;
    file.Reset();
    return RemoveInPlace(path, facts) ? Removal::Done : Removal::Failed;
}
