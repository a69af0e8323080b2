#include "firmware/Answers.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "mailbox/MailboxCodes.h"
#include "mailbox/MailboxRecords.h"

namespace mpm {

namespace {

template <class Record>
std::vector<uint8_t> BytesOf(const Record& record) {
    const auto* begin = reinterpret_cast<const uint8_t*>(&record);
    return {begin, begin + sizeof record};
}

template <size_t N>
void Fill(char (&area)[N], const std::string& text) {
    std::memcpy(area, text.data(), std::min(text.size(), N));
}

std::vector<uint8_t> Version(const Settings& settings) {
    ManageabilityStatus record{};
    Fill(record.MPMVersion, settings.MPMVersion);
    record.ProvisionStatus = settings.ProvisionStatus;
    record.uECAbsent = settings.uECAbsent;
    record.uVORKVersion = settings.uVORKVersion;
    record.KVMStatus = settings.KVMStatus;
    return BytesOf(record);
}

std::vector<uint8_t> Domains(const Settings& settings) {
    DomainInfo record{};
    record.Size = settings.DomainSize.value_or(uint32_t(settings.Domains.size()));
    Fill(record.Domains, settings.Domains);
    return BytesOf(record);
}

std::vector<uint8_t> Cloud(const CloudSettings& cloud) {
    CloudCertInfo record{};
    Fill(record.Hostname, cloud.Hostname);
    record.Port = cloud.Port;
    record.BypassCloud = cloud.BypassCloud;
    Fill(record.vCloudCert, cloud.vCloudCert);
    record.vCloudCertSize = cloud.vCloudCertSize.value_or(uint32_t(cloud.vCloudCert.size()));
    Fill(record.vCloudKey, cloud.vCloudKey);
    record.vCloudKeySize = cloud.vCloudKeySize.value_or(uint32_t(cloud.vCloudKey.size()));
    Fill(record.vCloudCACert, cloud.vCloudCACert);
    record.vCloudCACertSize = cloud.vCloudCACertSize.value_or(uint32_t(cloud.vCloudCACert.size()));
    return BytesOf(record);
}

}  // namespace

std::vector<uint8_t> AnswerTo(uint32_t code, const Settings& settings, bool hostUp) {
    switch (code) {
        case MailboxCode::GetZELVersion:
            return Version(settings);
        case MailboxCode::GetDomainInfo:
            return Domains(settings);
        case MailboxCode::GetCloudCertInfo:
            return Cloud(settings.Cloud);
        case MailboxCode::GetMPMStatus:
            return {settings.StatusFollowsHost && hostUp ? uint8_t(1) : settings.MPMStatus};
        // There is no ring of log records: a null address, which a host takes as such.
        case MailboxCode::AllocateLogBuffer:
        case MailboxCode::ReleaseLogBuffer:
            return std::vector<uint8_t>(8);
        default:
            return {};
    }
}

}  // namespace mpm
