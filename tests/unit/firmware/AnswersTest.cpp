// What the firmware answers to each query.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "firmware/Answers.h"
#include "mailbox/MailboxRecords.h"
#include "mailbox/MailboxTables.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

class AnswersTest : public testing::Test {
  protected:
    template <class Record>
    Record Asked(uint32_t code) {
        const LinkHost::Response response = m_host.Ask(code, {}, sizeof(Record));
        EXPECT_EQ(response.error, 0u);
        Record record{};
        EXPECT_EQ(response.output.size(), sizeof record);
        std::memcpy(&record, response.output.data(), std::min(response.output.size(), sizeof record));
        return record;
    }

    ListeningFirmware m_firmware;
    LinkHost m_host{m_firmware.Address()};
};

TEST_F(AnswersTest, AnswersItsVersionFromTheSettings) {
    m_firmware.Change([](Settings& settings) {
        settings.MPMVersion = "4.5.0.7";
        settings.ProvisionStatus = 1;
        settings.uECAbsent = 1;
        settings.uVORKVersion = 45;
        settings.KVMStatus = 9;
    });
    const auto status = Asked<ManageabilityStatus>(MailboxCode::GetZELVersion);
    EXPECT_STREQ(status.MPMVersion, "4.5.0.7");
    EXPECT_EQ(status.ProvisionStatus, 1u);
    EXPECT_EQ(status.uECAbsent, 1u);
    EXPECT_EQ(status.uVORKVersion, 45u);
    EXPECT_EQ(status.KVMStatus, 9u);
}

TEST_F(AnswersTest, SpeaksForVersion50ByDefault) {
    EXPECT_EQ(Asked<ManageabilityStatus>(MailboxCode::GetZELVersion).uVORKVersion, 50u);
}

TEST_F(AnswersTest, AnswersItsDomains) {
    m_firmware.Change([](Settings& settings) { settings.Domains = "corp.example.com\\lab.example.com"; });
    const auto domains = Asked<DomainInfo>(MailboxCode::GetDomainInfo);
    EXPECT_EQ(domains.Size, 32u);
    EXPECT_STREQ(domains.Domains, "corp.example.com\\lab.example.com");
}

TEST_F(AnswersTest, AnswersADomainSizeThatIsALie) {
    m_firmware.Change([](Settings& settings) { settings.DomainSize = 1281; });
    EXPECT_EQ(Asked<DomainInfo>(MailboxCode::GetDomainInfo).Size, 1281u);
}

TEST_F(AnswersTest, AnswersTheCloudData) {
    m_firmware.Change([](Settings& settings) {
        settings.Cloud.Hostname = "cloud.example.com";
        settings.Cloud.Port = 443;
        settings.Cloud.BypassCloud = 1;
        settings.Cloud.vCloudCert = "certificate";
        settings.Cloud.vCloudKey = "key";
        settings.Cloud.vCloudCACert = "authority";
        settings.Cloud.vCloudCACertSize = 5000;
    });
    const auto cloud = Asked<CloudCertInfo>(MailboxCode::GetCloudCertInfo);
    EXPECT_STREQ(cloud.Hostname, "cloud.example.com");
    EXPECT_EQ(cloud.Port, 443u);
    EXPECT_EQ(cloud.BypassCloud, 1u);
    EXPECT_STREQ(cloud.vCloudCert, "certificate");
    EXPECT_EQ(cloud.vCloudCertSize, 11u);
    EXPECT_STREQ(cloud.vCloudKey, "key");
    EXPECT_EQ(cloud.vCloudKeySize, 3u);
    EXPECT_STREQ(cloud.vCloudCACert, "authority");
    EXPECT_EQ(cloud.vCloudCACertSize, 5000u);
}

TEST_F(AnswersTest, OffersNoLogBuffer) {
    EXPECT_EQ(Asked<uint64_t>(MailboxCode::AllocateLogBuffer), 0u);
    EXPECT_EQ(Asked<uint64_t>(MailboxCode::ReleaseLogBuffer), 0u);
}

TEST_F(AnswersTest, IsInItsDownStateUntilTheHostIsUp) {
    EXPECT_EQ(Asked<uint8_t>(MailboxCode::GetMPMStatus), 2);
    m_host.Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1}));
    EXPECT_EQ(Asked<uint8_t>(MailboxCode::GetMPMStatus), 1);
    m_host.Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{2}));
    EXPECT_EQ(Asked<uint8_t>(MailboxCode::GetMPMStatus), 2);
}

TEST_F(AnswersTest, KeepsAForcedStatusWhateverTheHostReports) {
    m_firmware.Change([](Settings& settings) {
        settings.MPMStatus = 7;
        settings.StatusFollowsHost = false;
    });
    m_host.Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1}));
    EXPECT_EQ(Asked<uint8_t>(MailboxCode::GetMPMStatus), 7);
}

TEST_F(AnswersTest, HasAnAnswerToEveryQuery) {
    for (const MailboxRequest& request : kMailboxRequests) {
        const size_t size = request.output.minSize;
        if (size == 0) continue;
        EXPECT_EQ(AnswerTo(request.code, Settings(), true).size(), size)
            << "firmware/Answers.cpp has no answer to " << request.name;
    }
}

}  // namespace
}  // namespace mpm::test
