#include "base/WholeFile.h"

#include <winsock2.h>
#include <windows.h>
#include <fileapi.h>

#include <fstream>

#include "base/FileGuard.h"

WholeFile::~WholeFile() {
    if (m_isWritten) DeleteFileA(TemporaryPath().c_str());
}

bool WholeFile::Write(std::string_view content, bool isFolderSecure) {
    m_isWritten = isFolderSecure;
    std::ofstream file = OpenForWriting(TemporaryPath(), isFolderSecure, std::ios::out | std::ios::binary);
    if (!file.is_open()) return false;
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    return !file.fail();
}

bool WholeFile::Replace() {
    if (!MoveFileExA(TemporaryPath().c_str(), m_path.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return false;
    m_isWritten = false;
    return true;
}
