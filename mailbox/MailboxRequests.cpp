// One thin operation for each request to the firmware.
#include <string>

#include "base/FieldText.h"
#include "base/Log.h"
#include "mailbox/MailBoxDriverInterface.h"
#include "mailbox/MailboxTables.h"

namespace {

// A text of the firmware need not end inside its field.
template <size_t N>
std::string TextOf(const char (&field)[N], size_t limit = N) {
    return std::string(TextInField(field).substr(0, limit));
}

uint32_t RefuseNull(const char* name, const logging::Format<const char*>& text) {
    LogError(text, name);
    return ERROR_INVALID_ADDRESS;
}

}  // namespace

uint32_t MailBoxDriverInterface::Write(const MailboxRequest& request, const void* bytes, uint32_t size) {
    LogInfo("%s: connecting to Driver. Input buffer size = %d", request.name, size);
    DWORD bytesReturned = 0;
    return SendIOCtlToDriver(request.code, bytes, size, &bytesReturned, nullptr, 0);
}

template <class Record>
uint32_t MailBoxDriverInterface::Write(const TypedRequest<Record, NoRecord>& request, const Record* record) {
    return Write(request, record, sizeof *record);
}

template <class Record>
uint32_t MailBoxDriverInterface::Query(const TypedRequest<NoRecord, Record>& request, Record* record) {
    LogInfo("%s: connecting to Driver", request.name);
    DWORD bytesReturned = 0;
    return SendIOCtlToDriver(request.code, nullptr, 0, &bytesReturned, record, sizeof *record);
}

uint32_t MailBoxDriverInterface::WriteDASHPacket(DashPacket* pDashPacket) {
    constexpr const MailboxRequest& kRequest = MailboxRequests::WriteDASHPacket;
    if (!pDashPacket)
        return RefuseNull(kRequest.name,
                          "%s: pDashPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    LogInfo("%s: connecting to Driver. Input buffer size = %d", kRequest.name, pDashPacket->payloadSize);
    DWORD bytesReturned = 0;
    const uint32_t error = SendIOCtlToDriver(kRequest.code, pDashPacket->payload, pDashPacket->payloadSize,
                                             &bytesReturned, pDashPacket->reply, pDashPacket->replySize);
    pDashPacket->replySize = bytesReturned;
    return error;
}

uint32_t MailBoxDriverInterface::WriteKVMPacket(const KvmPacket* pKvmPacket) {
    constexpr const MailboxRequest& kRequest = MailboxRequests::WriteKVMPacket;
    if (!pKvmPacket)
        return RefuseNull(kRequest.name,
                          "%s: pKvmPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    return Write(kRequest, pKvmPacket->payload, pKvmPacket->payloadSize);
}

uint32_t MailBoxDriverInterface::WriteZELStatus(uint32_t state) {
    const ZELStatusRecord record{state};
    return Write(MailboxRequests::WriteZELStatus, &record);
}

uint32_t MailBoxDriverInterface::WriteNetworkStatusInfo(const NetworkStatusInfo* info) {
    return Write(MailboxRequests::WriteNetworkStatusInfo, info);
}

uint32_t MailBoxDriverInterface::WriteOsInfo(const OsInfo* info) {
    return Write(MailboxRequests::WriteOsInfo, info);
}

uint32_t MailBoxDriverInterface::WriteIPCompleteInformation(const IPCompleteInfo* info) {
    return Write(MailboxRequests::WriteIPCompleteInformation, info);
}

uint32_t MailBoxDriverInterface::WriteCloseSocketcmd(uint16_t port) {
    const CloseSocketRecord record{port};
    return Write(MailboxRequests::WriteCloseSocketcmd, &record);
}

uint32_t MailBoxDriverInterface::WriteNwInfo(const NwInfo* info) {
    return Write(MailboxRequests::WriteNwInfo, info);
}

uint32_t MailBoxDriverInterface::WriteMultiNwInfo(const MultiNwInfo* info) {
    return Write(MailboxRequests::WriteMultiNwInfo, info);
}

uint32_t MailBoxDriverInterface::WriteShutdownLaptop() {
    const ShutdownLaptopRecord record{2, 0};
    return Write(MailboxRequests::WriteShutdownLaptop, &record);
}

uint32_t MailBoxDriverInterface::WriteUserConsent(const UserConsentAnswer* answer) {
    return Write(MailboxRequests::WriteUserConsent, answer);
}

uint32_t MailBoxDriverInterface::WriteWiFiSyncInfo(const WiFiSyncInfo* info) {
    return Write(MailboxRequests::WriteWiFiSyncInfo, info);
}

uint32_t MailBoxDriverInterface::WriteADInfo(const ADInfo* info) {
    return Write(MailboxRequests::WriteADInfo, info);
}

uint32_t MailBoxDriverInterface::WriteWinRetCode(uint32_t first, uint32_t second) {
    const WinRetCodeRecord record{first, second, 0};
    return Write(MailboxRequests::WriteWinRetCode, &record);
}

uint32_t MailBoxDriverInterface::WriteEncodedBuffer(const void* pSendBuffer, uint32_t sendSize) {
    return Write(MailboxRequests::WriteEncodedBuffer, pSendBuffer, sendSize);
}

uint32_t MailBoxDriverInterface::SendEncodedDrvFrameBuffer(const EncodedFrameChunk* chunk) {
    constexpr const MailboxRequest& kRequest = MailboxRequests::SendEncodedDrvFrameBuffer;
    LogInfo("%s: connecting to Driver nInBufferSize %d", kRequest.name, sizeof *chunk);
    DWORD bytesReturned = 0;
    return SendIOCtlToDriver(kRequest.code, chunk, sizeof *chunk, &bytesReturned, nullptr, 0);
}

uint32_t MailBoxDriverInterface::WriteCapabilityConfig(const CapabilityConfigRecord* config) {
    return Write(MailboxRequests::WriteCapabilityConfig, config);
}

uint32_t MailBoxDriverInterface::WriteDisplayConfig(const DisplayConfigRecord* config) {
    return Write(MailboxRequests::WriteDisplayConfig, config);
}

uint32_t MailBoxDriverInterface::WriteCSRResponse(const CsrResponse* response) {
    return Write(MailboxRequests::WriteCSRResponse, response);
}

uint32_t MailBoxDriverInterface::WritePwdUpdateStatus(const PwdUpdateStatus* status) {
    return Write(MailboxRequests::WritePwdUpdateStatus, status);
}

uint32_t MailBoxDriverInterface::GetZELVersion(ManageabilityStatus* pMPMVersion) {
    constexpr const auto& kRequest = MailboxRequests::GetZELVersion;
    constexpr const char* kName = kRequest.name;
    if (!pMPMVersion)
        return RefuseNull(kName, "%s: pMPMVersion is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (const uint32_t error = Query(kRequest, pMPMVersion)) {
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
    constexpr const auto& kRequest = MailboxRequests::GetMPMStatus;
    constexpr const char* kName = kRequest.name;
    if (!pMPMstatus)
        return RefuseNull(kName, "%s: pMPMstatus is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    MPMStatusRecord record{*pMPMstatus};
    const uint32_t error = Query(kRequest, &record);
    *pMPMstatus = record.status;
    if (error) {
        // The text and the single code for every failure are the established ones. Callers treat all failures
        // alike.
        return RefuseNull(kName, "%s: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    }
    LogInfo("pMPMstatus: %d", *pMPMstatus);
    return ERROR_SUCCESS;
}

uint32_t MailBoxDriverInterface::GetCloudCertInfo(CloudCertInfo* cloudCerts) {
    constexpr const auto& kRequest = MailboxRequests::GetCloudCertInfo;
    constexpr const char* kName = kRequest.name;
    if (!cloudCerts)
        return RefuseNull(kName, "%s: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (const uint32_t error = Query(kRequest, cloudCerts)) {
        LogError("Driver IOCTL failed in function %s, with error %d", kName, error);
        return error;
    }
    LogInfo("NUBA vCloudCACert size %d", cloudCerts->vCloudCACertSize);
    LogInfo("NUBA vCloudCert size %d", cloudCerts->vCloudCertSize);
    // The line with the key's size names the certificate.
    LogInfo("NUBA vCloudCert size %d", cloudCerts->vCloudKeySize);
    LogInfo("NUBA Hostname %s", TextOf(cloudCerts->Hostname));
    LogInfo("NUBA Port %d", cloudCerts->Port);
    LogInfo("NUBA Bypass Cloud %ul", cloudCerts->BypassCloud);
    return ERROR_SUCCESS;
}

uint32_t MailBoxDriverInterface::GetDomainInfo(DomainInfo* domainDetails) {
    constexpr const auto& kRequest = MailboxRequests::GetDomainInfo;
    constexpr const char* kName = kRequest.name;
    if (!domainDetails)
        return RefuseNull(kName, "%s: domainDetails is NULL, returning ERROR_INVALID_ADDRESS to the caller");
    if (const uint32_t error = Query(kRequest, domainDetails)) {
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
