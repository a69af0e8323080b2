// The host at a glance, as `mpmsim show` prints it.
#include "firmware/control/HostTable.h"

#include <gtest/gtest.h>

#include <cstring>

#include "mailbox/MailboxRecords.h"
#include "mailbox/OsInfoRecord.h"
#include "mailbox/WiFiSyncRecord.h"
#include "tests/unit/firmware/LinkHost.h"

namespace mpm::test {
namespace {

class HostTableTest : public testing::Test {
  protected:
    template <class Record>
    void Report(uint32_t code, const Record& record) {
        EXPECT_EQ(m_host.Ask(code, Bytes::Of(record)).error, 0u);
    }
    std::string Table() { return control::HostTableOf(m_firmware.Host()); }
    void ExpectLine(const std::string& line) {
        EXPECT_NE(("\n" + Table()).find("\n" + line + "\n"), std::string::npos) << Table();
    }
    static NwInfoEntry Entry(const std::string& name) {
        NwInfoEntry entry{};
        name.copy(entry.Name, sizeof entry.Name - 1);
        std::strcpy(entry.MACAddress, "02005E100001");
        entry.StatusInfo = 5;
        entry.LinkTechnology = 2;
        entry.AddressOrigin = 4;
        entry.IPv4Address = 0x0A01A8C0;
        entry.Subnet = 0x00FFFFFF;
        entry.Gateway = 0x0101A8C0;
        return entry;
    }

    ListeningFirmware m_firmware;
    LinkHost m_host{m_firmware.Address()};
};

TEST_F(HostTableTest, IsEmptyBeforeTheHostHasToldAnything) {
    EXPECT_EQ(Table(), "");
}

TEST_F(HostTableTest, TellsTheSystemAndTheNames) {
    OsInfo os{};
    std::u16string(u"Windows 11 Pro").copy(os.OSName, 63);
    std::u16string(u"64-bit").copy(os.OtherTypeDescription, 63);
    std::u16string(u"10.0.22631").copy(os.Version, 63);
    std::strcpy(os.HostName, "PC-7");
    Report(MailboxCode::WriteOsInfo, os);
    ExpectLine("operating system            Windows 11 Pro, version 10.0.22631, 64-bit");
    ExpectLine("name                        PC-7");
    ExpectLine("domain                      -");
}

TEST_F(HostTableTest, TellsTheTimeZoneInHoursAndMinutes) {
    for (const auto& [seconds, text] :
         {std::pair{0, "UTC+00:00"}, {20700, "UTC+05:45"}, {-19800, "UTC-05:30"}, {-1800, "UTC-00:30"}}) {
        Report(MailboxCode::WriteADInfo, ADInfo{seconds, {}});
        ExpectLine(std::string("time zone                   ") + text);
    }
}

TEST_F(HostTableTest, ShowsTheWiFiNetworkAndItsKeyOnlyWhenAskedTo) {
    WiFiSyncInfo info{};
    std::strcpy(info.ssid, "office\x1b");
    std::strcpy(info.key_material, "correct horse");
    info.channel = 36;
    info.wpaauth = 4;
    info.band = 2;
    Report(MailboxCode::WriteWiFiSyncInfo, info);
    ExpectLine(
        "Wi-Fi                       office?, WPA3 personal, channel 36 (5 GHz), key (13 bytes, not shown)");
    m_firmware.Change([](Settings& settings) { settings.ShowWiFiKey = true; });
    ExpectLine("Wi-Fi                       office?, WPA3 personal, channel 36 (5 GHz), key correct horse");
    info.wpaauth = 7;
    info.band = 5;
    Report(MailboxCode::WriteWiFiSyncInfo, info);
    ExpectLine("Wi-Fi                       office?, ?, channel 36 (?), key correct horse");
}

TEST_F(HostTableTest, PutsTheAdaptersInColumns) {
    MultiNwInfo info{};
    info.Count = 2;
    info.Entries[0] = Entry("Ethernet");
    info.Entries[1] = Entry("Büro WLAN");
    info.Entries[1].LinkTechnology = 11;
    info.Entries[1].StatusInfo = 2;
    info.Entries[1].AddressOrigin = 3;
    info.Entries[1].IPv4Address = 0;
    Report(MailboxCode::WriteMultiNwInfo, info);
    EXPECT_EQ(Table(),
              "adapter    MAC                address       mask           gateway      origin  link\n"
              "Ethernet   02:00:5E:10:00:01  192.168.1.10  255.255.255.0  192.168.1.1  DHCP    Ethernet, "
              "operational\n"
              "Büro WLAN  02:00:5E:10:00:01  0.0.0.0       255.255.255.0  192.168.1.1  static  wireless, "
              "disconnected\n");
}

TEST_F(HostTableTest, CountsTheAdaptersThatTheRecordHasNoRoomFor) {
    MultiNwInfo info{};
    info.Count = 7;
    for (NwInfoEntry& entry : info.Entries)
        entry = Entry("Ethernet");
    Report(MailboxCode::WriteMultiNwInfo, info);
    ExpectLine("and 2 more");
}

TEST_F(HostTableTest, SaysSoWhenThereIsNoAdapter) {
    Report(MailboxCode::WriteMultiNwInfo, MultiNwInfo{});
    EXPECT_EQ(Table(), "no adapters\n");
}

TEST_F(HostTableTest, ShowsTheOneAdapterOfTheShortRecordWithoutAddresses) {
    NwInfo info{};
    std::strcpy(info.Name, "Ethernet");
    info.StatusInfo = 9;
    info.LinkTechnology = 0xFFFF;
    info.AddressOrigin = 4;
    Report(MailboxCode::WriteNwInfo, info);
    ExpectLine("Ethernet  -    -        -     -        DHCP    state 9");
}

TEST_F(HostTableTest, KeepsTheHostFromWritingToTheTerminal) {
    MultiNwInfo info{};
    info.Count = 1;
    info.Entries[0] = Entry("\x1b[2J\nfalse line");
    Report(MailboxCode::WriteMultiNwInfo, info);
    EXPECT_EQ(Table().find('\x1b'), std::string::npos);
    EXPECT_NE(Table().find("?[2J?false line"), std::string::npos) << Table();
}

}  // namespace
}  // namespace mpm::test
