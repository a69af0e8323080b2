// Every request of the catalogue: its code, its size, its bytes, its words.
#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include "mailbox/MailboxTables.h"
#include "tests/support/ServiceFixture.h"

namespace {

template <class Record>
Record Pattern() {
    Record record;
    auto* bytes = reinterpret_cast<uint8_t*>(&record);
    for (size_t i = 0; i < sizeof record; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
    return record;
}

template <class Record>
std::vector<uint8_t> BytesOf(const Record& record) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    return {bytes, bytes + sizeof record};
}

// Calls a wrapper with a record of zeros, or of the smallest input.
template <class Record>
auto With(uint32_t (MailBoxDriverInterface::*wrapper)(Record*)) {
    return [wrapper](MailBoxDriverInterface& mailbox) {
        std::remove_const_t<Record> record{};
        return (mailbox.*wrapper)(&record);
    };
}

using Interface = MailBoxDriverInterface;

const std::map<std::string, std::function<uint32_t(Interface&)>> kWrappers = {
    {"WriteDASHPacket", With(&Interface::WriteDASHPacket)},
    {"WriteZELStatus", [](Interface& mailbox) { return mailbox.WriteZELStatus(1); }},
    {"GetZELVersion", With(&Interface::GetZELVersion)},
    {"WriteNetworkStatusInfo", With(&Interface::WriteNetworkStatusInfo)},
    {"WriteOsInfo", With(&Interface::WriteOsInfo)},
    {"WriteIPCompleteInformation", With(&Interface::WriteIPCompleteInformation)},
    {"WriteCloseSocketcmd", [](Interface& mailbox) { return mailbox.WriteCloseSocketcmd(22); }},
    {"WriteNwInfo", With(&Interface::WriteNwInfo)},
    {"WriteMultiNwInfo", With(&Interface::WriteMultiNwInfo)},
    {"WriteKVMPacket", With(&Interface::WriteKVMPacket)},
    {"GetMPMStatus", With(&Interface::GetMPMStatus)},
    {"WriteShutdownLaptop", [](Interface& mailbox) { return mailbox.WriteShutdownLaptop(); }},
    {"GetCloudCertInfo", With(&Interface::GetCloudCertInfo)},
    {"WriteUserConsent", With(&Interface::WriteUserConsent)},
    {"GetDomainInfo", With(&Interface::GetDomainInfo)},
    {"WriteWiFiSyncInfo", With(&Interface::WriteWiFiSyncInfo)},
    {"WriteADInfo", With(&Interface::WriteADInfo)},
    {"WriteWinRetCode", [](Interface& mailbox) { return mailbox.WriteWinRetCode(1, 2); }},
    {"WriteEncodedBuffer",
     [](Interface& mailbox) {
         const uint8_t frame[sizeof(EncodedFrameChunk) + 1]{};
         return mailbox.WriteEncodedBuffer(frame, sizeof frame);
     }},
    {"SendEncodedDrvFrameBuffer", With(&Interface::SendEncodedDrvFrameBuffer)},
    {"WriteCapabilityConfig", With(&Interface::WriteCapabilityConfig)},
    {"WriteDisplayConfig", With(&Interface::WriteDisplayConfig)},
    {"WriteCSRResponse", With(&Interface::WriteCSRResponse)},
    {"WritePwdUpdateStatus", With(&Interface::WritePwdUpdateStatus)},
};

// The ring of log records, in FirmwareLogBufferTest.cpp.
const std::set<std::string> kWithoutWrapper = {"AllocateLogBuffer", "ReleaseLogBuffer"};

class Requests : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
    }

    MailBoxDriverInterface& Mailbox() { return service->m_mailBoxDriverInterface; }

    // What the firmware received last came from this operation, and the log says so.
    void ExpectSent(const std::string& name, uint32_t code, const std::vector<uint8_t>& bytes,
                    const std::string& text = "connecting to Driver. Input buffer size = ") {
        const auto requests = firmware.Requests();
        ASSERT_FALSE(requests.empty()) << name;
        EXPECT_EQ(requests.back().code, code) << name;
        EXPECT_EQ(requests.back().data, bytes) << name;
        EXPECT_TRUE(HasLine("INFO", name + ": " + text + std::to_string(bytes.size()))) << name;
    }

    template <class Record>
    void ExpectWrites(const std::string& name, uint32_t code, size_t size,
                      uint32_t (MailBoxDriverInterface::*write)(const Record*)) {
        const auto record = Pattern<Record>();
        EXPECT_EQ(sizeof record, size) << name;
        EXPECT_EQ((Mailbox().*write)(&record), 0u) << name;
        ExpectSent(name, code, BytesOf(record));
    }
};

}  // namespace

TEST_F(Requests, RecordsTravelAsTheyStandInMemory) {
    ExpectWrites("WriteNetworkStatusInfo", 0x9C41A428, 4, &Interface::WriteNetworkStatusInfo);
    ExpectWrites("WriteOsInfo", 0x9C41A42C, 804, &Interface::WriteOsInfo);
    ExpectWrites("WriteIPCompleteInformation", 0x9C41A430, 36, &Interface::WriteIPCompleteInformation);
    ExpectWrites("WriteNwInfo", 0x9C41A438, 384, &Interface::WriteNwInfo);
    ExpectWrites("WriteMultiNwInfo", 0x9C41A438, 2008, &Interface::WriteMultiNwInfo);
    ExpectWrites("WriteUserConsent", 0x9C41A47C, 12, &Interface::WriteUserConsent);
    ExpectWrites("WriteWiFiSyncInfo", 0x9C41A484, 132, &Interface::WriteWiFiSyncInfo);
    ExpectWrites("WriteADInfo", 0x9C41A488, 84, &Interface::WriteADInfo);
    ExpectWrites("WriteCapabilityConfig", 0x9C41A494, 4, &Interface::WriteCapabilityConfig);
    ExpectWrites("WriteDisplayConfig", 0x9C41A498, 8, &Interface::WriteDisplayConfig);
    ExpectWrites("WriteCSRResponse", 0x9C41A49C, 8200, &Interface::WriteCSRResponse);
    ExpectWrites("WritePwdUpdateStatus", 0x9C41A4A0, 4, &Interface::WritePwdUpdateStatus);
}

TEST_F(Requests, SmallRecordsAreMadeOfTheirArguments) {
    EXPECT_EQ(Mailbox().WriteZELStatus(3), 0u);
    ExpectSent("WriteZELStatus", 0x9C41A410, {3, 0, 0, 0});
    EXPECT_EQ(Mailbox().WriteCloseSocketcmd(664), 0u);
    ExpectSent("WriteCloseSocketcmd", 0x9C41A434, {0x98, 0x02});
    EXPECT_EQ(Mailbox().WriteShutdownLaptop(), 0u);
    ExpectSent("WriteShutdownLaptop", 0x9C41A460, {2, 0});
    EXPECT_EQ(Mailbox().WriteWinRetCode(0x01020304, 5), 0u);
    ExpectSent("WriteWinRetCode", 0x9C41A48C, {4, 3, 2, 1, 5, 0, 0, 0, 0, 0, 0, 0});
}

TEST_F(Requests, EncodedFramesTravelBehindTheirHead) {
    const auto chunk = Pattern<EncodedFrameChunk>();
    std::vector<uint8_t> bytes = BytesOf(chunk);
    bytes.insert(bytes.end(), {9, 8, 7});
    Mailbox().WriteEncodedBuffer(bytes.data(), static_cast<uint32_t>(bytes.size()));
    ExpectSent("WriteEncodedBuffer", 0x9C41A491, bytes);
    Mailbox().SendEncodedDrvFrameBuffer(&chunk);
    ExpectSent("SendEncodedDrvFrameBuffer", 0x9C41A491, BytesOf(chunk),
               "connecting to Driver nInBufferSize ");
}

TEST_F(Requests, StreamsTravelWithoutTheirDescriptor) {
    const std::string dash = "dash bytes", kvm = "kvm bytes";
    DashPacket dashPacket{1, dash.data(), static_cast<uint32_t>(dash.size()), nullptr, 0};
    EXPECT_EQ(Mailbox().WriteDASHPacket(&dashPacket), 0u);
    ExpectSent("WriteDASHPacket", 0x9C41A400, {dash.begin(), dash.end()});
    EXPECT_EQ(dashPacket.replySize, 0u);
    const KvmPacket kvmPacket{1, kvm.data(), static_cast<uint32_t>(kvm.size()), nullptr, 0};
    EXPECT_EQ(Mailbox().WriteKVMPacket(&kvmPacket), 0u);
    ExpectSent("WriteKVMPacket", 0x9C41A43D, {kvm.begin(), kvm.end()});
}

TEST_F(Requests, APacketSaysHowMuchItsReplyHolds) {
    const std::string dash = "dash bytes";
    std::vector<char> reply(16, 'r');
    DashPacket packet{1, dash.data(), static_cast<uint32_t>(dash.size()), reply.data(), 16};
    EXPECT_EQ(Mailbox().WriteDASHPacket(&packet), 0u);
    EXPECT_EQ(packet.replySize, 0u);
    EXPECT_EQ(reply, std::vector<char>(16, 'r'));

    firmware.ResizeAnswer("WriteDASHPacket", 5);
    packet.replySize = 16;
    EXPECT_EQ(Mailbox().WriteDASHPacket(&packet), 0u);
    EXPECT_EQ(packet.replySize, 5u);
    EXPECT_EQ(std::string(reply.data(), 16), std::string(5, '\0') + std::string(11, 'r'));
}

TEST_F(Requests, APacketIsNeeded) {
    ExpectErrors({"WriteDASHPacket: pDashPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller",
                  "WriteKVMPacket: pKvmPacket is NULL, returning ERROR_INVALID_ADDRESS to the caller"});
    EXPECT_EQ(Mailbox().WriteDASHPacket(nullptr), 487u);
    EXPECT_EQ(Mailbox().WriteKVMPacket(nullptr), 487u);
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(Requests, AQueryNeedsAPlaceForItsAnswer) {
    ExpectErrors({"GetZELVersion: pMPMVersion is NULL, returning ERROR_INVALID_ADDRESS to the caller",
                  "GetMPMStatus: pMPMstatus is NULL, returning ERROR_INVALID_ADDRESS to the caller",
                  "GetCloudCertInfo: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller",
                  "GetDomainInfo: domainDetails is NULL, returning ERROR_INVALID_ADDRESS to the caller"});
    EXPECT_EQ(Mailbox().GetZELVersion(nullptr), 487u);
    EXPECT_EQ(Mailbox().GetMPMStatus(nullptr), 487u);
    EXPECT_EQ(Mailbox().GetCloudCertInfo(nullptr), 487u);
    EXPECT_EQ(Mailbox().GetDomainInfo(nullptr), 487u);
    EXPECT_TRUE(firmware.Requests().empty());
}

TEST_F(Requests, TheVersionIsReadAndToldFieldByField) {
    firmware.Change([](mpm::Settings& settings) {
        settings.MPMVersion = "4.5.6";
        settings.ProvisionStatus = 2;
        settings.uECAbsent = 0x1F;
        settings.uVORKVersion = 45;
        settings.KVMStatus = 0xA;
    });
    ManageabilityStatus status{};
    EXPECT_EQ(Mailbox().GetZELVersion(&status), 0u);
    EXPECT_STREQ(status.MPMVersion, "4.5.6");
    EXPECT_EQ(status.uVORKVersion, 45u);
    EXPECT_EQ(firmware.Requests().back().code, 0x9C416424u);
    ExpectLogInOrder({"GetZELVersion: connecting to Driver", "readbytes is 80",
                      "GetZELVersion: MPMVersion: 4.5.6", "GetZELVersion: ProvisionStatus: 2",
                      "GetZELVersion: uECAbsent: 1f", "GetZELVersion: uVORKVersion: 0x2d <45>",
                      "GetZELVersion: KVMStatus: a"});
}

TEST_F(Requests, AVersionTextWithoutAnEndIsBounded) {
    // The field behind the text begins with a letter, too.
    firmware.Change([](mpm::Settings& settings) {
        settings.MPMVersion = std::string(64, 'v');
        settings.ProvisionStatus = 'w';
    });
    ManageabilityStatus status{};
    EXPECT_EQ(Mailbox().GetZELVersion(&status), 0u);
    EXPECT_TRUE(HasLine("INFO", "GetZELVersion: MPMVersion: " + std::string(64, 'v')));
    EXPECT_EQ(LogCount("MPMVersion: " + std::string(63, 'v')), 1u);
    EXPECT_EQ(LogCount("MPMVersion: " + std::string(65, 'v')), 0u);
}

TEST_F(Requests, TheStatusIsOneByte) {
    uint8_t status = 0;
    EXPECT_EQ(Mailbox().GetMPMStatus(&status), 0u);
    EXPECT_EQ(status, 2);
    EXPECT_EQ(firmware.Requests().back().code, 0x9C416458u);
    EXPECT_TRUE(HasLine("INFO", "pMPMstatus: 2"));
}

TEST_F(Requests, EveryFailureOfTheStatusIsTheSameOne) {
    ExpectErrors({"GetOverlappedResult failed", "Return from",
                  "GetMPMStatus: cloudCerts is NULL, returning ERROR_INVALID_ADDRESS to the caller"});
    firmware.Refuse("GetMPMStatus", ERROR_NO_SYSTEM_RESOURCES);
    uint8_t status = 0;
    EXPECT_EQ(Mailbox().GetMPMStatus(&status), 487u);
    EXPECT_EQ(status, 0);
}

TEST_F(Requests, AQueryThatFailsIsTold) {
    ExpectErrors({"GetOverlappedResult failed", "Return from",
                  "Driver IOCTL failed in function GetZELVersion, with error 1450",
                  "Driver IOCTL failed in function GetCloudCertInfo, with error 1450",
                  "Driver IOCTL failed in function GetDomainInfo, with error 1450"});
    for (const char* name : {"GetZELVersion", "GetCloudCertInfo", "GetDomainInfo"})
        firmware.Refuse(name, ERROR_NO_SYSTEM_RESOURCES);
    ManageabilityStatus status{};
    CloudCertInfo certificates{};
    DomainInfo domains{};
    EXPECT_EQ(Mailbox().GetZELVersion(&status), 1450u);
    EXPECT_EQ(Mailbox().GetCloudCertInfo(&certificates), 1450u);
    EXPECT_EQ(Mailbox().GetDomainInfo(&domains), 1450u);
}

TEST_F(Requests, CloudDataAreReadAndTheirSizesTold) {
    firmware.Change([](mpm::Settings& settings) {
        settings.Cloud.Hostname = "cloud.example";
        settings.Cloud.Port = 443;
        settings.Cloud.BypassCloud = 1;
        settings.Cloud.vCloudCert = "certificate";
        settings.Cloud.vCloudKey = "key";
        settings.Cloud.vCloudCACert = "authority";
    });
    CloudCertInfo certificates{};
    EXPECT_EQ(Mailbox().GetCloudCertInfo(&certificates), 0u);
    EXPECT_STREQ(certificates.vCloudKey, "key");
    EXPECT_EQ(firmware.Requests().back().code, 0x9C416468u);
    ExpectLogInOrder({"readbytes is 12564", "NUBA vCloudCACert size 9", "NUBA vCloudCert size 11",
                      "NUBA vCloudCert size 3", "NUBA Hostname cloud.example", "NUBA Port 443",
                      "NUBA Bypass Cloud 1l"});
}

TEST_F(Requests, DomainsAreReadUpToTheirSize) {
    firmware.Change([](mpm::Settings& settings) {
        settings.Domains = "one.example,two.example";
        settings.DomainSize = 11;
    });
    DomainInfo domains{};
    EXPECT_EQ(Mailbox().GetDomainInfo(&domains), 0u);
    EXPECT_EQ(firmware.Requests().back().code, 0x9C416480u);
    EXPECT_TRUE(HasLine("INFO", "Domains size 11"));
    EXPECT_TRUE(HasLine("INFO", "Domains values one.example"));
}

TEST_F(Requests, ADomainSizeOf1280IsTheLargest) {
    firmware.Change([](mpm::Settings& settings) { settings.DomainSize = 1280; });
    DomainInfo domains{};
    EXPECT_EQ(Mailbox().GetDomainInfo(&domains), 0u);
    EXPECT_EQ(LogCount("Domains values "), 1u);
}

TEST_F(Requests, ADomainSizeAboveTheLimitIsToldAndStillASuccess) {
    ExpectError("GetDomainInfo: Size value {1281} is beyond the limit permitted for DNS domain 1280");
    firmware.Change([](mpm::Settings& settings) { settings.DomainSize = 1281; });
    DomainInfo domains{};
    EXPECT_EQ(Mailbox().GetDomainInfo(&domains), 0u);
    EXPECT_EQ(domains.Size, 1281u);
    EXPECT_EQ(LogCount("Domains values "), 0u);
}

TEST_F(Requests, EachHasAWrapperThatSendsIt) {
    for (const MailboxRequest& request : kMailboxRequests) {
        if (kWithoutWrapper.contains(request.name)) continue;
        const auto call = kWrappers.find(request.name);
        if (call == kWrappers.end()) {
            ADD_FAILURE() << request.name << " has no row in kWrappers";
            continue;
        }
        EXPECT_EQ(call->second(Mailbox()), 0u) << request.name;
        EXPECT_EQ(firmware.Requests().back().name, request.name);
        EXPECT_EQ(firmware.Requests().back().code, request.code) << request.name;
    }
}

TEST_F(Requests, EachWrapperHasARow) {
    for (const auto& [name, call] : kWrappers)
        EXPECT_TRUE(std::any_of(std::begin(kMailboxRequests), std::end(kMailboxRequests),
                                [&](const MailboxRequest& request) { return name == request.name; }))
            << name << " has no row in MAILBOX_REQUESTS";
}

TEST_F(Requests, WithTheGateClosedOnlyTheStatusRequestsPass) {
    ExpectErrors({"not signalled as Up", "Driver IOCTL failed in function"});
    Mailbox().m_bServiceUp = 0;
    for (const auto& [name, call] : kWrappers)
        EXPECT_EQ(call(Mailbox()), name == "WriteZELStatus" || name == "GetMPMStatus" ? 0u : 1062u) << name;
    EXPECT_EQ(firmware.Requests().size(), 2u);
}
