#include "identity/CsrFiles.h"

#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>

#include "base/FileAccess.h"
#include "base/FileGuard.h"
#include "base/FilesystemPath.h"
#include "base/Log.h"
#include "state/ServiceState.h"

namespace {

namespace fs = std::filesystem;

std::string GetCsrFolder() {
    return g_pServiceState->GetWorkingFolder() + "\\CSRCert";
}

bool IsFolderSecure() {
    return g_pServiceState->m_bWorkingFolderSecure;
}

// Returns false when there is no folder to write to. A user could have put a link in the place of a folder
// that is not secure.
bool CreateCsrFolder() {
    const fs::path folder = FilesystemPath(GetCsrFolder());
    try {
        if (IsFolderSecure()) {
            if (fs::exists(folder)) return true;
            if (fs::create_directories(folder)) {
                LogInfo("Directory created for CSR");
                return true;
            }
        }
        LogError("Failed to create directory for CSR");
    } catch (const fs::filesystem_error& error) {
        LogInfo("Error creating directory for CSR: %s", error.what());
    }
    return false;
}

// Returns the number of bytes that were read, and nothing, with the last error, when the file cannot be
// opened. What does not fit is left out.
template <size_t N>
std::optional<uint32_t> ReadToField(const std::string& path, char (&field)[N]) {
    if (!IsFolderSecure()) {
        SetLastError(ERROR_ACCESS_DENIED);
        return std::nullopt;
    }
    // Not what a link leads to. While it is open, no other file can take its name.
    const UniqueFileHandle guard = OpenInPlace(path, GENERIC_READ);
    if (!guard) return std::nullopt;
    std::ifstream file(FilesystemPath(path), std::ios::binary);
    file.read(field, N);
    return static_cast<uint32_t>(file.gcount());
}

}  // namespace

std::string GetCsrInputPath() {
    return GetCsrFolder() + "\\input.csr";
}

std::string GetCsrOutputPath() {
    return GetCsrFolder() + "\\output.crt";
}

std::string GetIntermediateCertPath() {
    return GetCsrFolder() + "\\intermediate.pem";
}

std::string GetRootCertPath() {
    return GetCsrFolder() + "\\root.pem";
}

void RemoveCsrFolder() {
    if (!IsFolderSecure()) return;
    const std::string folder = GetCsrFolder();
    try {
        fs::remove_all(FilesystemPath(folder));
        LogInfo("Folder deleted: %s", folder);
    } catch (const fs::filesystem_error& error) {
        LogInfo("Error deleting folder: %s", error.what());
    }
}

void SaveCsrToFile(const CsrRequest& request) {
    if (!CreateCsrFolder()) return;
    std::ofstream file =
        OpenForWriting(GetCsrInputPath(), IsFolderSecure(), std::ios::out | std::ios::binary);
    if (!file.is_open()) return;
    file.write(request.CSR, std::min<std::streamsize>(request.CSRSize, sizeof request.CSR));
    file.close();
    LogInfo("Writing CSR buffer to .csr file");
}

void ReadCsrResponse(CsrResponse& response) {
    LogInfo("Writing CSR response to file");
    response = {};
    if (const auto size = ReadToField(GetCsrOutputPath(), response.SignedCert)) {
        response.SignedCertSize = *size;
        LogInfo("Signed certificate data read done. size: %d", *size);
    } else {
        LogError("Failed to open crt file. Error: %d", GetLastError());
    }
    if (const auto size = ReadToField(GetRootCertPath(), response.RootCert)) {
        response.RootCertSize = *size;
        LogInfo("Root CA certificate data read done. size: %d", *size);
    } else {
        LogError("Failed to open rootCA file. Error: %d", GetLastError());
    }
}
