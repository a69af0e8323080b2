// What the firmware makes of each request: it is answered, kept, and readable field by field.
#include <gtest/gtest.h>
#include <json/json.h>

#include "firmware/Catalogue.h"
#include "firmware/Hex.h"
#include "firmware/Report.h"
#include "mailbox/ConsentRecords.h"
#include "mailbox/DisplayRecords.h"
#include "mailbox/IdentityRecords.h"
#include "mailbox/MailboxRecords.h"
#include "mailbox/OsInfoRecord.h"
#include "mailbox/WiFiSyncRecord.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

class RequestsTest : public testing::Test {
  protected:
    // Sends the record and returns what the firmware then knows of the host by this name.
    template <class Record>
    Json::Value Decoded(const char* name, uint32_t code, const Record& record) {
        EXPECT_EQ(m_host.Ask(code, Bytes::Of(record)).error, 0u);
        EXPECT_EQ(m_firmware.Count(name), 1u);
        const Json::Value line = JsonOf(m_firmware.Requests(name).at(0));
        EXPECT_EQ(line["fields"], m_firmware.Host()[name]);
        EXPECT_EQ(line["bytes"].asUInt64(), sizeof record);
        return line["fields"];
    }

    ListeningFirmware m_firmware;
    LinkHost m_host{m_firmware.Address()};
};

constexpr uint32_t kAddress = 0x0A01A8C0;  // 192.168.1.10 in network byte order

TEST_F(RequestsTest, ReadsTheServiceState) {
    EXPECT_EQ(Decoded("WriteZELStatus", MailboxCode::WriteZELStatus, ZELStatusRecord{3})["state"], 3);
    EXPECT_TRUE(m_firmware.Host()["up"].asBool());
}

template <size_t N, size_t M>
void Fill(char16_t (&area)[N], const char16_t (&text)[M]) {
    static_assert(M <= N);
    std::memcpy(area, text, sizeof text);
}

TEST_F(RequestsTest, ReadsTheOperatingSystem) {
    OsInfo info{};
    Fill(info.OSName, u"Microsoft Windows 11 Prof\u00e9ssional \U0001F600");
    Fill(info.OtherTypeDescription, u"64-bit");
    Fill(info.Version, u"10.0.22631");
    std::strcpy(info.HostName, "laptop-7");
    std::strcpy(info.DomainName, "corp.example.com");
    info.OSType = 18;
    info.OSReservedWord = 65535;
    std::strcpy(info.ZELVersion, "5.1.0.1481");
    const Json::Value fields = Decoded("WriteOsInfo", MailboxCode::WriteOsInfo, info);
    EXPECT_EQ(fields["OSName"], "Microsoft Windows 11 Prof\u00e9ssional \U0001F600");
    EXPECT_EQ(fields["OtherTypeDescription"], "64-bit");
    EXPECT_EQ(fields["Version"], "10.0.22631");
    EXPECT_EQ(fields["HostName"], "laptop-7");
    EXPECT_EQ(fields["DomainName"], "corp.example.com");
    EXPECT_EQ(fields["OSType"], 18);
    EXPECT_EQ(fields["OSReservedWord"], 65535);
    EXPECT_EQ(fields["ZELVersion"], "5.1.0.1481");
}

TEST_F(RequestsTest, ReadsThePrimaryAddressAndThePeer) {
    const IPCompleteInfo info{kAddress,   664,    0x0101A8C0, 0x08080808, 0x00FFFFFF,
                              0x0201A8C0, 0x39C8, {},         0xFFFF};
    const Json::Value fields =
        Decoded("WriteIPCompleteInformation", MailboxCode::WriteIPCompleteInformation, info);
    EXPECT_EQ(fields["IPv4Address"], "192.168.1.10");
    EXPECT_EQ(fields["Port"], 664);
    EXPECT_EQ(fields["Gateway"], "192.168.1.1");
    EXPECT_EQ(fields["DnsServer"], "8.8.8.8");
    EXPECT_EQ(fields["Subnet"], "255.255.255.0");
    EXPECT_EQ(fields["PeerAddress"], "192.168.1.2");
    EXPECT_EQ(fields["PeerPort"], 51257);  // C8 39 on the wire
    EXPECT_EQ(fields["PeerMarker"], 0xFFFF);
}

NwInfoEntry Ethernet() {
    NwInfoEntry entry{};
    std::strcpy(entry.Name, "Simulated Ethernet Adapter");
    entry.Speed = 10000000000;
    std::strcpy(entry.MACAddress, "02005E100001");
    std::strcpy(entry.DeviceID, "3");
    entry.StatusInfo = 5;
    entry.LinkTechnology = 2;
    entry.AddressOrigin = 4;
    entry.IPv4Address = kAddress;
    entry.Subnet = 0x00FFFFFF;
    entry.Gateway = 0x0101A8C0;
    return entry;
}

TEST_F(RequestsTest, ReadsEachInterfaceOfTheInventory) {
    MultiNwInfo info{};
    info.Count = 2;
    info.Entries[0] = info.Entries[1] = Ethernet();
    std::strcpy(info.Entries[1].Name, "Wi-Fi");
    const Json::Value fields = Decoded("WriteMultiNwInfo", MailboxCode::WriteMultiNwInfo, info);
    EXPECT_EQ(fields["Count"], 2);
    ASSERT_EQ(fields["Entries"].size(), 2u);
    EXPECT_EQ(fields["Entries"][1]["Name"], "Wi-Fi");
    const Json::Value first = fields["Entries"][0];
    EXPECT_EQ(first["Name"], "Simulated Ethernet Adapter");
    EXPECT_EQ(first["Speed"].asUInt64(), 10000000000u);
    EXPECT_EQ(first["MACAddress"], "02005E100001");
    EXPECT_EQ(first["MaxSpeed"], 0);
    EXPECT_EQ(first["DeviceID"], "3");
    EXPECT_EQ(first["StatusInfo"], 5);
    EXPECT_EQ(first["LinkTechnology"], 2);
    EXPECT_EQ(first["AddressOrigin"], 4);
    EXPECT_EQ(first["IPv4Address"], "192.168.1.10");
    EXPECT_EQ(first["Subnet"], "255.255.255.0");
    EXPECT_EQ(first["Gateway"], "192.168.1.1");
}

TEST_F(RequestsTest, ShowsFiveInterfacesWhenTheCountIsHigher) {
    MultiNwInfo info{};
    info.Count = 60000;
    const Json::Value fields = Decoded("WriteMultiNwInfo", MailboxCode::WriteMultiNwInfo, info);
    EXPECT_EQ(fields["Count"], 60000);
    EXPECT_EQ(fields["Entries"].size(), MultiNwInfo::kSlots);
}

TEST_F(RequestsTest, TellsTheOneInterfaceRecordFromTheListByItsSize) {
    NwInfo info{};
    std::strcpy(info.Name, "Wi-Fi");
    info.LinkTechnology = 0xFFFF;
    const Json::Value fields = Decoded("WriteNwInfo", MailboxCode::WriteNwInfo, info);
    EXPECT_EQ(fields["Name"], "Wi-Fi");
    EXPECT_EQ(fields["LinkTechnology"], 0xFFFF);
    EXPECT_EQ(m_firmware.Count("WriteMultiNwInfo"), 0u);
}

TEST_F(RequestsTest, ReadsTheWiFiProfileButNeverShowsItsKey) {
    WiFiSyncInfo info{};
    info.size_of_this_structure = 132;
    info.is_valid = 1;
    std::strcpy(info.ssid, "office");
    info.channel = 36;
    info.wpaauth = 4;
    std::strcpy(info.key_material, "correct horse");
    info.pairwise = info.groupwise = 1;
    info.group_mgmt = 4;
    info.band = 2;
    info.pmf = 1;
    const Json::Value fields = Decoded("WriteWiFiSyncInfo", MailboxCode::WriteWiFiSyncInfo, info);
    EXPECT_EQ(fields["ssid"], "office");
    EXPECT_EQ(fields["size_of_this_structure"], 132);
    EXPECT_EQ(fields["is_valid"], 1);
    EXPECT_EQ(fields["channel"], 36);
    EXPECT_EQ(fields["wpaauth"], 4);
    EXPECT_EQ(fields["pairwise"], 1);
    EXPECT_EQ(fields["groupwise"], 1);
    EXPECT_EQ(fields["group_mgmt"], 4);
    EXPECT_EQ(fields["band"], 2);
    EXPECT_EQ(fields["pmf"], 1);
    EXPECT_EQ(fields["wpa_ptk_rekey"], 0);
    EXPECT_EQ(fields["key_material"], "(13 bytes, not shown)");
    EXPECT_EQ(Compact(fields).find("horse"), std::string::npos);
    EXPECT_EQ(JsonOf(m_firmware.Requests().at(0), SecretsOf(Settings{}, "WriteWiFiSyncInfo")),
              JsonOf(m_firmware.Requests().at(0)));
    Settings settings;
    settings.ShowWiFiKey = true;
    const Json::Value shown = JsonOf(m_firmware.Requests().at(0), SecretsOf(settings, "WriteWiFiSyncInfo"));
    EXPECT_EQ(shown["fields"]["key_material"], "correct horse");
    EXPECT_EQ(shown["hex"], ToHex({reinterpret_cast<const uint8_t*>(&info), sizeof info}));
    EXPECT_FALSE(JsonOf(m_firmware.Requests().at(0)).isMember("hex"));
    EXPECT_EQ(SecretsOf(settings, "GetCloudCertInfo"), Secrets::Masked);
}

TEST_F(RequestsTest, ShowsNoByteOfARecordOfWrongSize) {
    const std::string record(131, 'k');
    EXPECT_EQ(m_host.Ask(MailboxCode::WriteWiFiSyncInfo, record).error, 87u);
    const std::string shown = Compact(JsonOf(m_firmware.Requests().at(0)));
    EXPECT_EQ(shown.find("6b"), std::string::npos) << shown;
    EXPECT_NE(shown.find("wrong size of 131 bytes"), std::string::npos) << shown;
}

TEST_F(RequestsTest, ReadsTheSmallRecords) {
    EXPECT_EQ(Decoded("WriteNetworkStatusInfo", MailboxCode::WriteNetworkStatusInfo,
                      NetworkStatusInfo{2})["status"],
              2);
    EXPECT_EQ(Decoded("WriteADInfo", MailboxCode::WriteADInfo, ADInfo{-19800, {}})["TimezoneDiff"], -19800);
    EXPECT_EQ(Decoded("WriteCloseSocketcmd", MailboxCode::WriteCloseSocketcmd, CloseSocketRecord{22})["port"],
              22);
    EXPECT_EQ(
        Decoded("WriteShutdownLaptop", MailboxCode::WriteShutdownLaptop, ShutdownLaptopRecord{2, 0})["code"],
        2);
    EXPECT_EQ(Decoded("WriteWinRetCode", MailboxCode::WriteWinRetCode, WinRetCodeRecord{7, 8, 0})["second"],
              8);
    EXPECT_EQ(
        Decoded("WriteUserConsent", MailboxCode::WriteUserConsent, UserConsentAnswer{1, 2, 0})["Consent"], 2);
    EXPECT_EQ(Decoded("WriteCapabilityConfig", MailboxCode::WriteCapabilityConfig,
                      CapabilityConfigRecord{1})["encode"],
              1);
    EXPECT_EQ(Decoded("WriteDisplayConfig", MailboxCode::WriteDisplayConfig,
                      DisplayConfigRecord{1920, 1080})["height"],
              1080);
    EXPECT_EQ(
        Decoded("WritePwdUpdateStatus", MailboxCode::WritePwdUpdateStatus, PwdUpdateStatus{86})["status"],
        86);
}

TEST_F(RequestsTest, ReadsTheHeadOfAnEncodedChunk) {
    std::vector<uint8_t> chunk(12 + 100);
    chunk[0] = 2;
    chunk[4] = 100;
    chunk[8] = 200;
    EXPECT_EQ(m_host.Ask(MailboxCode::WriteEncodedBuffer, chunk).error, 0u);
    const Json::Value fields = JsonOf(m_firmware.Requests("WriteEncodedBuffer").at(0))["fields"];
    EXPECT_EQ(fields["RequiredChunk"], 2);
    EXPECT_EQ(fields["ChunkSize"], 100);
    EXPECT_EQ(fields["FrameSize"], 200);
    EXPECT_EQ(fields["data"].asString().substr(0, 10), "100 bytes:");
}

TEST_F(RequestsTest, TellsABareFrameHeadFromAChunkByItsSize) {
    EXPECT_EQ(Decoded("SendEncodedDrvFrameBuffer", MailboxCode::SendEncodedDrvFrameBuffer,
                      EncodedFrameChunk{1, 0, 5})["FrameSize"],
              5);
}

TEST_F(RequestsTest, ReadsTheIssuedCertificates) {
    CsrResponse response{};
    response.SignedCertSize = 3;
    std::memcpy(response.SignedCert, "abc", 3);
    const Json::Value fields = Decoded("WriteCSRResponse", MailboxCode::WriteCSRResponse, response);
    EXPECT_EQ(fields["SignedCertSize"], 3);
    EXPECT_EQ(fields["RootCertSize"], 0);
    EXPECT_EQ(fields["SignedCert"].asString().substr(0, 20), "4096 bytes: 61 62 63");
}

TEST_F(RequestsTest, TakesStreamBlocksOfAnySizeUpToTheHostsBuffer) {
    for (const uint32_t code : {MailboxCode::WriteDASHPacket, MailboxCode::WriteKVMPacket})
        for (const size_t size : {size_t(1), size_t(64), kMailboxBufferSize})
            EXPECT_EQ(m_host.Ask(code, std::string(size, 'x')).error, 0u) << size;
    EXPECT_EQ(m_firmware.Requests("WriteDASHPacket").at(2).data.size(), kMailboxBufferSize);
    EXPECT_EQ(m_host.Ask(MailboxCode::WriteDASHPacket, std::string(kMailboxBufferSize + 1, 'x')).error, 87u);
}

TEST_F(RequestsTest, ShowsLongBinaryDataAsLengthAndFirstBytes) {
    m_host.Ask(MailboxCode::WriteDASHPacket, std::string(1000, '\x16'));
    EXPECT_EQ(JsonOf(m_firmware.Requests().at(0))["fields"]["data"],
              "1000 bytes: 16 16 16 16 16 16 16 16 16 16 16 16 16 16 16 16 ...");
}

TEST_F(RequestsTest, RefusesAndRecordsAnUnknownCode) {
    EXPECT_EQ(m_host.Ask(0x9C41ABCD, "xyz").error, 87u);
    const Request request = m_firmware.Requests().at(0);
    EXPECT_EQ(request.name, "0x9C41ABCD");
    EXPECT_EQ(request.fault, "unknown code");
}

TEST_F(RequestsTest, RefusesEveryOperationWithOneByteTooMany) {
    for (const MailboxRequest& operation : kMailboxRequests) {
        if (operation.name == std::string("SendEncodedDrvFrameBuffer")) continue;  // one byte more is a chunk
        const std::vector<uint8_t> input(operation.input.maxSize + 1);
        EXPECT_EQ(m_host.Ask(operation.code, input, 20000).error, 87u) << operation.name;
        EXPECT_FALSE(m_firmware.Requests().back().fault.empty()) << operation.name;
    }
    EXPECT_EQ(m_firmware.Host().getMemberNames(), (std::vector<std::string>{"listening", "up"}));
}

TEST_F(RequestsTest, RefusesAQueryWithTooLittleRoom) {
    EXPECT_EQ(m_host.Ask(MailboxCode::GetZELVersion, {}, 79).error, 122u);
}

TEST_F(RequestsTest, AwaitsARequestThatMatches) {
    m_host.Post(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1}));
    m_host.Post(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{2}));
    const auto down = m_firmware.AwaitRequest(
        "WriteZELStatus", [](const Request& request) { return request.As<ZELStatusRecord>().state == 2; });
    ASSERT_TRUE(down);
    EXPECT_TRUE(m_firmware.AwaitCount("WriteZELStatus", 2));
    EXPECT_FALSE(m_firmware.AwaitRequest("WriteOsInfo", nullptr, std::chrono::milliseconds(1)));
}

TEST_F(RequestsTest, ForgetsRequestsWhenTold) {
    m_host.Ask(MailboxCode::WriteZELStatus, Bytes::Of(ZELStatusRecord{1}));
    m_firmware.Clear();
    EXPECT_TRUE(m_firmware.Requests().empty());
    EXPECT_EQ(m_firmware.Count("WriteZELStatus"), 0u);
    EXPECT_FALSE(m_firmware.AwaitRequest("WriteZELStatus", nullptr, std::chrono::milliseconds(1)));
}

TEST_F(RequestsTest, CountsRequestsThatItDoesNotKeep) {
    m_firmware.Change([](Settings& settings) { settings.KeepRequests = false; });
    m_host.Ask(MailboxCode::WriteDASHPacket, "abc");
    EXPECT_EQ(m_firmware.Count("WriteDASHPacket"), 1u);
    EXPECT_TRUE(m_firmware.Requests().empty());
}

TEST(CommandsTest, AreFoundByNameInAnyFormAndByNumber) {
    for (const char* text : {"MPM_ZEL_CMD_DASH_DATA", "dash_data", "Dash_Data", "8", "0x08"})
        EXPECT_EQ(ParseCommand(text), 8) << text;
    EXPECT_EQ(ParseCommand("ad_service_pwd_update_cmd"), 51);
    EXPECT_EQ(ParseCommand("SAFEBOOT"), 52);
    EXPECT_EQ(ParseCommand("0"), 0);
    for (const char* text : {"", "0x", "256", "-1", "8x", "DASH", "MPM_ZEL_CMD_"})
        EXPECT_FALSE(ParseCommand(text)) << text;
}

TEST(CommandsTest, CanAllBeSentByNameAndNumber) {
    for (const FirmwareCommand& command : kFirmwareCommands) {
        EXPECT_EQ(ParseCommand(command.name), command.number) << command.name;
        EXPECT_EQ(ParseCommand(std::to_string(command.number)), command.number) << command.name;
        EXPECT_EQ(CommandName(command.number), command.name);
    }
}

TEST_F(RequestsTest, ShowsReservedBytesOnlyWhenOneIsNotZero) {
    ADInfo info{3600, {}};
    EXPECT_EQ(Decoded("WriteADInfo", MailboxCode::WriteADInfo, info).getMemberNames(),
              std::vector<std::string>{"TimezoneDiff"});
    m_firmware.Clear();
    info.reserved[79] = 1;
    EXPECT_TRUE(Decoded("WriteADInfo", MailboxCode::WriteADInfo, info).isMember("reserved"));
}

TEST(CommandsTest, ShowPasswordsByLengthAloneEvenWhenTheRecordIsCut) {
    Event event{Event::Kind::Message, "MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD", 51, {}, {}, {}};
    const Bytes cut("hunter2");
    event.data = cut;
    EXPECT_EQ(JsonOf(event)["fields"]["OldPassword"], "(7 bytes, not shown)");
    EXPECT_EQ(Compact(JsonOf(event)).find("68 75"), std::string::npos);
}

}  // namespace
}  // namespace mpm::test
