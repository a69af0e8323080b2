// The catalogue: one thin operation for each request that the firmware knows.
#include <string>

#include "mailbox/ConsentRecords.h"
#include "mailbox/DisplayRecords.h"
#include "mailbox/IdentityRecords.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "mailbox/OsInfoRecord.h"
#include "mailbox/WiFiSyncRecord.h"
#include "base/FieldText.h"
#include "base/Log.h"

namespace {

// The firmware's texts are not trusted to end inside their field.
template <size_t N>
std::string TextOf(const char (&field)[N], size_t limit = N) {
    return std::string(TextInField(field).substr(0, limit));
}

uint32_t RefuseNull(const char* name, const logging::Format<const char*>& text) {
    LogError(text, name);
    return ERROR_INVALID_ADDRESS;
}

}  // namespace

uint32_t MailBoxDriverInterface::Write(const char* name, uint32_t code, const void* record, uint32_t size) {
    LogInfo("%s: connecting to Driver. Input buffer size = %d", name, size);
    DWORD bytesReturned = 0;
    return SendIOCtlToDriver(code, record, size, &bytesReturned, nullptr, 0);
}

uint32_t MailBoxDriverInterface::Query(const char* name, uint32_t code, void* record, uint32_t size) {
    LogInfo("%s: connecting to Driver", name);
    DWORD bytesReturned = 0;
    return SendIOCtlToDriver(code, nullptr, 0, &bytesReturned, record, size);
}

uint32_t MailBoxDriverInterface::WriteDASHPacket(DashPacket* pDashPacket) {
    if (!pDashPacket)
        return RefuseNull("WriteDASHPacket",
                          "%s: pDashPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    LogInfo("%s: connecting to Driver. Input buffer size = %d", "WriteDASHPacket", pDashPacket->payloadSize);
    DWORD bytesReturned = 0;
    const uint32_t error =
        SendIOCtlToDriver(MailboxCode::WriteDASHPacket, pDashPacket->payload, pDashPacket->payloadSize,
                          &bytesReturned, pDashPacket->reply, pDashPacket->replySize);
    pDashPacket->replySize = bytesReturned;
    return error;
}

uint32_t MailBoxDriverInterface::WriteKVMPacket(const KvmPacket* pKvmPacket) {
    if (!pKvmPacket)
        return RefuseNull("WriteKVMPacket",
                          "%s: pKvmPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    return Write("WriteKVMPacket", MailboxCode::WriteKVMPacket, pKvmPacket->payload, pKvmPacket->payloadSize);
}

uint32_t MailBoxDriverInterface::WriteZELStatus(uint32_t state) {
    const ZELStatusRecord record{state};
    return Write("WriteZELStatus", MailboxCode::WriteZELStatus, &record, sizeof record);
}

uint32_t MailBoxDriverInterface::WriteNetworkStatusInfo(const NetworkStatusInfo* info) {
    return Write("WriteNetworkStatusInfo", MailboxCode::WriteNetworkStatusInfo, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteOsInfo(const OsInfo* info) {
    return Write("WriteOsInfo", MailboxCode::WriteOsInfo, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteIPCompleteInformation(const IPCompleteInfo* info) {
    return Write("WriteIPCompleteInformation", MailboxCode::WriteIPCompleteInformation, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteCloseSocketcmd(uint16_t port) {
    const CloseSocketRecord record{port};
    return Write("WriteCloseSocketcmd", MailboxCode::WriteCloseSocketcmd, &record, sizeof record);
}

uint32_t MailBoxDriverInterface::WriteNwInfo(const NwInfo* info) {
    return Write("WriteNwInfo", MailboxCode::WriteNwInfo, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteMultiNwInfo(const MultiNwInfo* info) {
    return Write("WriteMultiNwInfo", MailboxCode::WriteMultiNwInfo, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteShutdownLaptop() {
    const ShutdownLaptopRecord record{2, 0};
    return Write("WriteShutdownLaptop", MailboxCode::WriteShutdownLaptop, &record, sizeof record);
}

uint32_t MailBoxDriverInterface::WriteUserConsent(const UserConsentAnswer* answer) {
    return Write("WriteUserConsent", MailboxCode::WriteUserConsent, answer, sizeof *answer);
}

uint32_t MailBoxDriverInterface::WriteWiFiSyncInfo(const WiFiSyncInfo* info) {
    return Write("WriteWiFiSyncInfo", MailboxCode::WriteWiFiSyncInfo, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteADInfo(const ADInfo* info) {
    return Write("WriteADInfo", MailboxCode::WriteADInfo, info, sizeof *info);
}

uint32_t MailBoxDriverInterface::WriteWinRetCode(uint32_t first, uint32_t second) {
    const WinRetCodeRecord record{first, second, 0};
    return Write("WriteWinRetCode", MailboxCode::WriteWinRetCode, &record, sizeof record);
}

uint32_t MailBoxDriverInterface::WriteEncodedBuffer(const void* pSendBuffer, uint32_t sendSize) {
    return Write("WriteEncodedBuffer", MailboxCode::WriteEncodedBuffer, pSendBuffer, sendSize);
}

uint32_t MailBoxDriverInterface::SendEncodedDrvFrameBuffer(const EncodedFrameChunk* chunk) {
    LogInfo("%s: connecting to Driver nInBufferSize %d", "SendEncodedDrvFrameBuffer", sizeof *chunk);
    DWORD bytesReturned = 0;
    return SendIOCtlToDriver(MailboxCode::SendEncodedDrvFrameBuffer, chunk, sizeof *chunk, &bytesReturned,
                             nullptr, 0);
}

uint32_t MailBoxDriverInterface::WriteCapabilityConfig(const CapabilityConfigRecord* config) {
    return Write("WriteCapabilityConfig", MailboxCode::WriteCapabilityConfig, config, sizeof *config);
}

uint32_t MailBoxDriverInterface::WriteDisplayConfig(const DisplayConfigRecord* config) {
    return Write("WriteDisplayConfig", MailboxCode::WriteDisplayConfig, config, sizeof *config);
}

uint32_t MailBoxDriverInterface::WriteCSRResponse(const CsrResponse* response) {
    return Write("WriteCSRResponse", MailboxCode::WriteCSRResponse, response, sizeof *response);
}

uint32_t MailBoxDriverInterface::WritePwdUpdateStatus(const PwdUpdateStatus* status) {
    return Write("WritePwdUpdateStatus", MailboxCode::WritePwdUpdateStatus, status, sizeof *status);
}

uint32_t MailBoxDriverInterface::GetZELVersion(ManageabilityStatus* pMPMVersion) {
    constexpr const char* kName = "GetZELVersion";
    if (!pMPMVersion)
        return RefuseNull(kName, "%s: pMPMVersion is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (const uint32_t error = Query(kName, MailboxCode::GetZELVersion, pMPMVersion, sizeof *pMPMVersion)) {
        LogError("Driver IOCTL failed in function %s, with error %d", kName, error);
        return error;
    }
    LogInfo("%s: MPMVersion: %s", kName, TextOf(pMPMVersion->MPMVersion));
    LogInfo("%s: ProvisionStatus: %d", kName, pMPMVersion->ProvisionStatus);
    LogInfo("%s: uECAbsent: %x", kName, pMPMVersion->uECAbsent);
    LogInfo("%s: uVORKVersion: 0x%x <%d>", kName, pMPMVersion->uVORKVersion, pMPMVersion->uVORKVersion);
    LogInfo("%s: KVMStatus: %x", kName, pMPMVersion->KVMStatus);
    return ERROR_SUCCESS;
}

uint32_t MailBoxDriverInterface::GetMPMStatus(uint8_t* pMPMstatus) {
    constexpr const char* kName = "GetMPMStatus";
    if (!pMPMstatus)
        return RefuseNull(kName, "%s: pMPMstatus is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (Query(kName, MailboxCode::GetMPMStatus, pMPMstatus, sizeof *pMPMstatus)) {
        // The text and the one code for every failure are the established ones; callers treat all failures
        // alike.
        return RefuseNull(kName, "%s: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    }
    LogInfo("pMPMstatus: %d", *pMPMstatus);
    return ERROR_SUCCESS;
}

uint32_t MailBoxDriverInterface::GetCloudCertInfo(CloudCertInfo* cloudCerts) {
    constexpr const char* kName = "GetCloudCertInfo";
    if (!cloudCerts)
        return RefuseNull(kName, "%s: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (const uint32_t error = Query(kName, MailboxCode::GetCloudCertInfo, cloudCerts, sizeof *cloudCerts)) {
        LogError("Driver IOCTL failed in function %s, with error %d", kName, error);
        return error;
    }
    LogInfo("NUBA vCloudCACert size %d", cloudCerts->vCloudCACertSize);
    LogInfo("NUBA vCloudCert size %d", cloudCerts->vCloudCertSize);
    // The key's size goes by the certificate's name in the log.
    LogInfo("NUBA vCloudCert size %d", cloudCerts->vCloudKeySize);
    LogInfo("NUBA Hostname %s", TextOf(cloudCerts->Hostname));
    LogInfo("NUBA Port %d", cloudCerts->Port);
    LogInfo("NUBA Bypass Cloud %ul", cloudCerts->BypassCloud);
    return ERROR_SUCCESS;
}

uint32_t MailBoxDriverInterface::GetDomainInfo(DomainInfo* domainDetails) {
    constexpr const char* kName = "GetDomainInfo";
    if (!domainDetails)
        return RefuseNull(kName, "%s: domainDetails is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (const uint32_t error =
            Query(kName, MailboxCode::GetDomainInfo, domainDetails, sizeof *domainDetails)) {
        LogError("Driver IOCTL failed in function %s, with error %d", kName, error);
        return error;
    }
    LogInfo("Domains size %d", domainDetails->Size);
    if (domainDetails->Size <= DomainInfo::kMaxDomains) {
        LogInfo("Domains values %s", TextOf(domainDetails->Domains, domainDetails->Size));
    } else {
        LogError("%s: Size value {%d} is beyond the limit permitted for DNS domain %d", kName,
                 domainDetails->Size, DomainInfo::kMaxDomains);
    }
    return ERROR_SUCCESS;
}
