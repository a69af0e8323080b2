// The file in which the host can read what the service knows.
#include "reporting/StatusFile.h"

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "tests/unit/reporting/ReportingFixture.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr char kPath[] = "C:\\ProgramData\\Tarvix\\Manageability\\zel_json_data.txt";

class StatusFileTest : public ReportingFixture {
  protected:
    std::string Content() {
        std::ifstream file(HostPath(kPath), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    std::map<std::string, std::string> Values() {
        service->m_statusFile.UpdateStatusFile();
        std::map<std::string, std::string> values;
        std::istringstream lines(Content());
        for (std::string line; std::getline(lines, line);) {
            const size_t separator = line.find("\" : \"");
            if (separator == std::string::npos) continue;
            const size_t value = separator + 5;
            values[line.substr(2, separator - 2)] = line.substr(value, line.rfind('"') - value);
        }
        return values;
    }

    void AskFirmware(const std::string& version, uint32_t vork) {
        OpenMailbox();
        firmware.Change([&](mpm::Settings& settings) {
            settings.MPMVersion = version;
            settings.uVORKVersion = vork;
        });
        service->UpdateManageabilityStatus();
    }

    void TakeAddress() {
        SetAdapters({Wired(1, "192.168.1.10", "192.168.1.1")});
        service->m_ipv4InfoStore.UpdateNetworkAddress(false);
    }

    void Scan(uint32_t addressOrigin, const std::string& adapterType) {
        MultiNwInfo record{};
        record.Count = 1;
        service->m_networkStateStore.Store(record);
        RememberInterface(addressOrigin, adapterType);
    }

    void RememberInterface(uint32_t addressOrigin, const std::string& adapterType) {
        service->m_ipv4InfoStore.RememberInterface(inet_addr("192.168.1.10"), addressOrigin,
                                                   inet_addr("192.168.1.1"), adapterType);
    }
};

}  // namespace

TEST_F(StatusFileTest, BeforeAnythingIsKnownItSaysSo) {
    service->m_statusFile.UpdateStatusFile();
    EXPECT_EQ(Content(),
              "{\n"
              "\t\"AddressOrigin\" : \"Unknown\",\n"
              "\t\"DHCPServer\" : \"0\",\n"
              "\t\"IPv4Adresss\" : \"0\",\n"
              "\t\"IPv4DnsServer\" : \"0\",\n"
              "\t\"IPv4Gateway\" : \"0\",\n"
              "\t\"KVMStatus\" : \"NO\",\n"
              "\t\"MPMVersion\" : \"Unavailable\",\n"
              "\t\"Network\" : \"Unknown\",\n"
              "\t\"ProvisionStatus\" : \"Not Completed\",\n"
              "\t\"ProvisionedPort\" : \"664\",\n"
              "\t\"ServiceState\" : \"OFF\",\n"
              "\t\"SubnetMask\" : \"0\",\n"
              "\t\"TarvixProductVersion\" : \"5.1.0.1481\",\n"
              "\t\"VORKversion\" : \"Unavailable\"\n"
              "}\n"
              "\n");
}

TEST_F(StatusFileTest, OnceAllIsKnownEveryValueIsThere) {
    AskFirmware("5.0.0.100", 45);
    TakeAddress();
    Scan(4, "Wired LAN");
    service->KVMStatus = "YES";
    service->m_statusFile.UpdateStatusFile();
    EXPECT_EQ(Content(),
              "{\n"
              "\t\"AddressOrigin\" : \"Dynamic\",\n"
              "\t\"DHCPServer\" : \"101a8c0\",\n"
              "\t\"IPv4Adresss\" : \"a01a8c0\",\n"
              "\t\"IPv4DnsServer\" : \"3507a8c0\",\n"
              "\t\"IPv4Gateway\" : \"101a8c0\",\n"
              "\t\"KVMStatus\" : \"YES\",\n"
              "\t\"MPMVersion\" : \"5.0.0.100\",\n"
              "\t\"Network\" : \"Wired LAN\",\n"
              "\t\"ProvisionStatus\" : \"Completed\",\n"
              "\t\"ProvisionedPort\" : \"664\",\n"
              "\t\"ServiceState\" : \"ON\",\n"
              "\t\"SubnetMask\" : \"ffffff\",\n"
              "\t\"TarvixProductVersion\" : \"5.1.0.1481\",\n"
              "\t\"VORKversion\" : \"VOR-K 4.5\"\n"
              "}\n"
              "\n");
}

TEST_F(StatusFileTest, AStaticAddressOfAWirelessAdapterIsTold) {
    TakeAddress();
    Scan(3, "Wireless LAN");
    auto values = Values();
    EXPECT_EQ(values["AddressOrigin"], "Static");
    EXPECT_EQ(values["Network"], "Wireless LAN");
}

TEST_F(StatusFileTest, AnyOtherKindOfAdapterIsUnknown) {
    TakeAddress();
    Scan(0, "PPP");
    auto values = Values();
    EXPECT_EQ(values["AddressOrigin"], "Unknown");
    EXPECT_EQ(values["Network"], "Unknown");
}

TEST_F(StatusFileTest, WithoutInterfacesAnEarlierDhcpServerCountsNoMore) {
    TakeAddress();
    Scan(4, "Wired LAN");
    service->m_networkStateStore.Clear();
    service->m_ipv4InfoStore.ClearAddresses();
    auto values = Values();
    EXPECT_EQ(values["DHCPServer"], "0");
    EXPECT_EQ(values["Network"], "Unknown");
    EXPECT_EQ(values["IPv4Adresss"], "0");
}

TEST_F(StatusFileTest, TheDhcpServerNeedsAnInterfaceInTheStore) {
    TakeAddress();
    RememberInterface(4, "Wired LAN");
    EXPECT_EQ(Values()["DHCPServer"], "0");
    Scan(4, "Wired LAN");
    service->m_networkStateStore.Clear();
    EXPECT_EQ(Values()["DHCPServer"], "0");
}

TEST_F(StatusFileTest, AFirmwareThatDoesNotAnswerHasAVersionThatIsNotEmpty) {
    ExpectErrors({"GetOverlappedResult failed", "Return from MailBoxDriverInterface::SendIOCtlToDriver()",
                  "Driver IOCTL failed in function GetZELVersion, with error 31"});
    firmware.Refuse("GetZELVersion", ERROR_GEN_FAILURE);
    AskFirmware("5.0.0.100", 45);
    service->KVMStatus = "YES";
    auto values = Values();
    EXPECT_EQ(values["MPMVersion"], "Not Available");
    EXPECT_EQ(values["ServiceState"], "OFF");
    EXPECT_EQ(values["KVMStatus"], "YES");
    EXPECT_EQ(values["VORKversion"], "VOR-K 1.0");
    EXPECT_EQ(values["ProvisionStatus"], "Not Completed");
}

TEST_F(StatusFileTest, BeforeAVersionIsKnownThereIsNoKvm) {
    service->KVMStatus = "YES";
    EXPECT_EQ(Values()["KVMStatus"], "NO");
}

TEST_F(StatusFileTest, ThePointOfTheFeatureLevelFollowsTheFirstDigit) {
    for (const auto& [level, text] : std::map<uint32_t, std::string>{{0, "VOR-K 1.0"},
                                                                     {19, "VOR-K 1.0"},
                                                                     {20, "VOR-K 2.0"},
                                                                     {21, "VOR-K 2.1"},
                                                                     {50, "VOR-K 5.0"},
                                                                     {123, "VOR-K 1.23"}}) {
        AskFirmware("5.0.0.100", level);
        EXPECT_EQ(Values()["VORKversion"], text) << level;
    }
}

TEST_F(StatusFileTest, IsWrittenAnewEachTime) {
    AskFirmware(std::string(60, 'x'), 45);
    service->m_statusFile.UpdateStatusFile();
    const size_t before = Content().size();
    AskFirmware("1", 45);
    service->m_statusFile.UpdateStatusFile();
    EXPECT_EQ(Content().size(), before - 59);
}

TEST_F(StatusFileTest, AFileThatCannotBeWrittenIsLoggedAndLeft) {
    fs::create_directories(HostPath(kPath));
    ExpectError("Failed to create C:\\ProgramData\\Tarvix\\Manageability\\zel_json_data.txt file.");
    service->m_statusFile.UpdateStatusFile();
    EXPECT_TRUE(fs::is_directory(HostPath(kPath)));
    // The next occasion tries again.
    fs::remove(HostPath(kPath));
    service->m_statusFile.UpdateStatusFile();
    EXPECT_TRUE(fs::is_regular_file(HostPath(kPath)));
}

TEST_F(StatusFileTest, IsRemovedAtTheEnd) {
    service->m_statusFile.UpdateStatusFile();
    service->m_statusFile.DeleteStatusFile();
    EXPECT_FALSE(fs::exists(HostPath(kPath)));
    EXPECT_TRUE(HasLine("INFO", "zel_json_data file deleted successfully"));
}

TEST_F(StatusFileTest, AnAbsentFileIsNoErrorAtTheEnd) {
    service->m_statusFile.DeleteStatusFile();
    EXPECT_TRUE(HasLine("INFO", "zel_json_data file does not exist"));
}

TEST_F(StatusFileTest, AFileThatCannotBeRemovedIsAWarning) {
    service->m_statusFile.UpdateStatusFile();
    Gate().FailNth("DeleteFileA", 1, ERROR_ACCESS_DENIED);
    service->m_statusFile.DeleteStatusFile();
    EXPECT_TRUE(HasLine("WARN", "zel_json_data file deletion failed"));
    EXPECT_TRUE(fs::exists(HostPath(kPath)));
}

TEST_F(StatusFileTest, AReportThatEndsLateWritesNoFile) {
    service->m_statusFile.DeleteStatusFile();
    service->m_statusFile.UpdateStatusFile();
    EXPECT_FALSE(fs::exists(HostPath(kPath)));
}

TEST_F(StatusFileTest, AFolderThatCannotBeSearchedIsTheCleanUpsAffair) {
    // A name that is too long for any file: whether there is one is unknown.
    service->m_pathCache["\\zel_json_data.txt"] = "C:\\" + std::string(5000, 'x');
    EXPECT_THROW(service->m_statusFile.DeleteStatusFile(), fs::filesystem_error);
    ExpectError("ZEL Tray UI cleanup failed with exception: ");
    OpenMailbox();
    EXPECT_TRUE(service->ServiceCleanup());
}

TEST_F(StatusFileTest, IsThereBeforeTheDeviceIsAndGoneWithTheService) {
    firmware.Vanish();
    ExpectErrors({"ZELService::DoDriverInitialization: OpenMPMDevice() call failed with error: 487",
                  "m_pDeviceInterfaceDetailData is NULL. No device interfaces present",
                  "SendIOCtlToDriver: Error Invalid Handle, returning: 6 to the caller"});
    StartService();
    EXPECT_TRUE(Eventually([] { return fs::exists(HostPath(kPath)); }));
    AwaitLog("OpenMPMDevice() call failed with error: 487");
    service->ServiceCleanup();
    EXPECT_FALSE(fs::exists(HostPath(kPath)));
}

TEST_F(StatusFileTest, ThePlatformUpdateWritesIt) {
    OpenMailbox();
    SetAdapters({Wired(1, "192.168.1.10", "192.168.1.1")});
    service->UpdatePlatformInfoToMPM();
    EXPECT_NE(Content().find("\"IPv4Adresss\" : \"a01a8c0\""), std::string::npos);
    EXPECT_NE(Content().find("\"ServiceState\" : \"ON\""), std::string::npos);
}

TEST_F(StatusFileTest, AWakeInSafeBootWritesIt) {
    OpenMailbox();
    service->m_bootMode = 2;
    service->WakeAndUpdateMPM(true);
    EXPECT_NE(Content().find("\"MPMVersion\" : \"5.0.0.100\""), std::string::npos);
}
