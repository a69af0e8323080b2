// The firmware's data for the cloud connection: the files of the library, and the company's domains.
#include <exception>
#include <memory>
#include <sstream>

#include "base/FieldText.h"
#include "base/Log.h"
#include "base/Secret.h"
#include "base/SecureFolder.h"
#include "base/WholeFile.h"
#include "cloud/NubaClient.h"
#include "state/ServiceState.h"

namespace {

constexpr char kDomainSeparator = '\\';

// A record that holds the key for no longer than it is used.
struct ReceivedInfo : CloudCertInfo {
    ReceivedInfo() : CloudCertInfo{} {}
    ~ReceivedInfo() { WipeMemory(vCloudKey, sizeof vCloudKey); }
    ReceivedInfo(const ReceivedInfo&) = delete;
    ReceivedInfo& operator=(const ReceivedInfo&) = delete;
};

bool IsBounded(uint32_t size, size_t field) {
    if (size <= field) return true;
    LogError("NUBA certificate data has invalid size %d", size);
    return false;
}

bool HasValidSizes(const CloudCertInfo& info) {
    return IsBounded(info.vCloudCACertSize, sizeof info.vCloudCACert) &&
           IsBounded(info.vCloudCertSize, sizeof info.vCloudCert) &&
           IsBounded(info.vCloudKeySize, sizeof info.vCloudKey);
}

// One file, and what the log says about it.
struct CloudFile {
    const char *valid, *written, *failed;
    std::string_view content;
    WholeFile file;
};

// Returns false with a line for the first file that cannot be written.
bool Write(CloudFile& cloudFile, bool isFirst, const std::string& path) {
    LogInfo("%s", cloudFile.valid);
    if (isFirst) LogInfo("Writing host to Cloud file:%s, length:%zu", path, cloudFile.content.size());
    if (!cloudFile.file.Write(cloudFile.content, g_pServiceState->m_bWorkingFolderSecure)) {
        LogInfo("%s", cloudFile.failed);
        return false;
    }
    LogInfo("%s", cloudFile.written);
    return true;
}

std::vector<std::string> Split(const std::string& text) {
    std::vector<std::string> items;
    std::istringstream stream(text);
    for (std::string item; std::getline(stream, item, kDomainSeparator);)
        items.push_back(item);
    return items;
}

}  // namespace

bool NubaClient::GetCloudProvisioning() {
    ReceivedInfo info;
    if (const uint32_t error = g_pServiceState->m_mailBoxDriverInterface.GetCloudCertInfo(&info)) {
        LogInfo("GetCloudCertInfo failed with error: %d", error);
        return false;
    }
    // Two reports may run at once.
    const std::lock_guard lock(m_dataMutex);
    m_cloudCertInfo = info;
    WipeMemory(m_cloudCertInfo.vCloudKey, sizeof m_cloudCertInfo.vCloudKey);
    if (info.vCloudCACertSize == 0 || info.vCloudCertSize == 0 || info.vCloudKeySize == 0) {
        LogInfo("Detected cloud provisioning missing");
        return false;
    }
    if (info.Port == 0) {
        LogInfo("NUBA Port data is not yet read from MPM");
        m_bCloudDataRead = 0;
        return false;
    }
    if (!HasValidSizes(info) || !PrepareCertsFolder(PathsOfCloud().certsFolder) || !WriteFiles(info))
        return false;
    m_bCloudDataRead = 1;
    return true;
}

bool NubaClient::PrepareCertsFolder(const std::string& folder) const {
    // A folder of which users could replace the parent is not secure.
    SecuredFolder secured;
    if (g_pServiceState->m_bWorkingFolderSecure) secured = SecureFolder(folder, Contents::Secret);
    if (!secured.remark.empty()) LogWarn("%s %s", folder, secured.remark);
    if (!secured.isSecure) {
        LogError(
            "ZELService failed to create certs folder in ProgramData path %s. This will prevent cloud "
            "connection!",
            folder);
        return false;
    }
    LogInfo("%s directory exists", folder);
    return true;
}

// The files take effect when all of them have been written, because they belong together.
bool NubaClient::WriteFiles(const CloudCertInfo& info) {
    const CloudPaths paths = PathsOfCloud();
    CloudFile files[] = {
        {"NUBA Host name has valid length", "Writing cloud host to cloud.txt",
         "Failed to open cloud host file for writing", TextInField(info.Hostname), WholeFile(paths.host)},
        {"NUBA CA Certificate has valid length",
         "Writing CA cert to NUBA",
         "Failed to open cloud CA file for writing",
         {info.vCloudCACert, info.vCloudCACertSize},
         WholeFile(paths.authority)},
        {"NUBA Private Certificate has valid length",
         "Writing cert to NUBA",
         "Failed to open cloud cert file for writing",
         {info.vCloudCert, info.vCloudCertSize},
         WholeFile(paths.certificate)},
        {"NUBA Certificate key has valid length",
         "Writing key to NUBA",
         "Failed to open cloud key file for writing",
         {info.vCloudKey, info.vCloudKeySize},
         WholeFile(paths.key)},
    };
    for (CloudFile& file : files)
        if (!Write(file, &file == files, paths.host)) return false;
    for (CloudFile& file : files) {
        if (file.file.Replace()) continue;
        LogInfo("%s", file.failed);
        return false;
    }
    return true;
}

void NubaClient::SetupCloudServer() {
    LogInfo("Setup Cloud Server");
    if (!GetCloudProvisioning()) return;
    DomainInfo info{};
    if (const uint32_t error = g_pServiceState->m_mailBoxDriverInterface.GetDomainInfo(&info)) {
        LogError("GetDomainInfo failed with error: %d", error);
        m_bRunning.exchange(0);
        return;
    }
    if (info.Size == 0) {
        LogInfo("NUBA domain not configured. Reading size 0");
        m_bRunning.exchange(0);
        return;
    }
    if (info.Size > DomainInfo::kMaxDomains) {
        LogError("NUBA domain has invalid size %d", info.Size);
        m_bRunning.exchange(0);
        return;
    }
    const std::string domains(info.Domains, info.Size);
    LogInfo("MPM Domain String: %s", domains);
    const std::lock_guard lock(m_dataMutex);
    m_domainList = Split(domains);
}

std::vector<std::string> NubaClient::Domains() const {
    const std::lock_guard lock(m_dataMutex);
    return m_domainList;
}
