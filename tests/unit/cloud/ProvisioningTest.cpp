// The files of the cloud connection, which the service writes from the firmware's data.
#include <gtest/gtest.h>

#include <shlobj.h>

#include "tests/unit/cloud/CloudFixture.h"
#include "winhost/files/FileSecurity.h"

namespace {

namespace fs = std::filesystem;

constexpr char kCertsFolder[] = R"(C:\ProgramData\Tarvix\Manageability\certs)";
constexpr char kHostFailed[] = "Failed to open cloud host file for writing";
constexpr char kKeyFailed[] = "Failed to open cloud key file for writing";

class CloudProvisioning : public CloudFixture {
  protected:
    static bool UserReads(const std::string& name) {
        Pc().Change([](auto& pc) { pc.userName = "alice"; });
        const HANDLE file =
            CreateFileA((kWorkingFolder + name).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        Pc().Change([](auto& pc) { pc.userName = "SYSTEM"; });
        return file != INVALID_HANDLE_VALUE && CloseHandle(file);
    }
    static std::vector<std::string> AllFiles() {
        return {Read("cloud.txt"), Read(R"(certs\ca.pem)"), Read(R"(certs\cert.pem)"),
                Read(R"(certs\key.pem)")};
    }
    static size_t TemporaryFiles() {
        size_t count = 0;
        for (const auto& entry : fs::recursive_directory_iterator(HostPath(kWorkingFolder)))
            if (entry.path().extension() == ".new") ++count;
        return count;
    }
    void ChangeAll() {
        SetCloud([](mpm::CloudSettings& cloud) {
            cloud.Hostname = "second.example.com";
            cloud.vCloudCert = "certificate 2";
            cloud.vCloudKey = "key 2";
            cloud.vCloudCACert = "authority 2";
        });
    }
    void ExpectNothing() {
        EXPECT_FALSE(Client().GetCloudProvisioning());
        EXPECT_FALSE(Exists("cloud.txt"));
        EXPECT_FALSE(Exists(R"(certs\key.pem)"));
        EXPECT_FALSE(Client().HasCloudData());
    }

    const std::vector<std::string> kFirst = {"cloud.example.com", "the authority", "the certificate",
                                             "the key"};
};

TEST_F(CloudProvisioning, TheFirmwaresDataBecomesFourFiles) {
    EXPECT_FALSE(Client().HasCloudData());
    EXPECT_TRUE(Client().GetCloudProvisioning());
    EXPECT_TRUE(Client().HasCloudData());
    EXPECT_EQ(AllFiles(), kFirst);
    EXPECT_EQ(TemporaryFiles(), 0u);
    ExpectLogInOrder(
        {R"(C:\ProgramData\Tarvix\Manageability\certs directory exists)", "NUBA Host name has valid length",
         R"(Writing host to Cloud file:C:\ProgramData\Tarvix\Manageability\cloud.txt, length:17)",
         "Writing cloud host to cloud.txt", "NUBA CA Certificate has valid length", "Writing CA cert to NUBA",
         "NUBA Private Certificate has valid length", "Writing cert to NUBA",
         "NUBA Certificate key has valid length", "Writing key to NUBA"});
}

TEST_F(CloudProvisioning, TheFilesAreRewrittenWhole) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    Write("cloud.txt", std::string(1000, 'x'));
    ChangeAll();
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_EQ(AllFiles(),
              (std::vector<std::string>{"second.example.com", "authority 2", "certificate 2", "key 2"}));
}

TEST_F(CloudProvisioning, LineEndsAndZerosOfThePemTextsStay) {
    const std::string text("a\nb\r\n\0c\n", 8);
    SetCloud([&](mpm::CloudSettings& cloud) { cloud.vCloudCert = text; });
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_EQ(Read(R"(certs\cert.pem)"), text);
}

TEST_F(CloudProvisioning, UnprovisionedFirmwareWritesNothing) {
    SetCloud([](mpm::CloudSettings& cloud) { cloud = {}; });
    ExpectNothing();
    EXPECT_TRUE(HasLine("INFO", "Detected cloud provisioning missing"));
    EXPECT_EQ(LogCount("directory exists"), 0u);
}

TEST_F(CloudProvisioning, EachOfTheThreeTextsIsNeeded) {
    for (std::string mpm::CloudSettings::*text :
         {&mpm::CloudSettings::vCloudCert, &mpm::CloudSettings::vCloudKey,
          &mpm::CloudSettings::vCloudCACert}) {
        std::string kept;
        SetCloud([&](mpm::CloudSettings& cloud) { std::swap(cloud.*text, kept); });
        ExpectNothing();
        SetCloud([&](mpm::CloudSettings& cloud) { cloud.*text = kept; });
    }
    EXPECT_EQ(LogCount("Detected cloud provisioning missing"), 3u);
    EXPECT_TRUE(Client().GetCloudProvisioning());
}

TEST_F(CloudProvisioning, WithoutAPortTheDataCountsAsNotRead) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    SetCloud([](mpm::CloudSettings& cloud) { cloud.Port = 0; });
    EXPECT_FALSE(Client().GetCloudProvisioning());
    EXPECT_FALSE(Client().HasCloudData());
    EXPECT_TRUE(HasLine("INFO", "NUBA Port data is not yet read from MPM"));
    EXPECT_EQ(AllFiles(), kFirst);
}

TEST_F(CloudProvisioning, FirmwareThatDoesNotAnswerLeavesEverythingAsItIs) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    firmware.Refuse("GetCloudCertInfo", ERROR_GEN_FAILURE);
    ExpectErrors({"Driver IOCTL failed in function GetCloudCertInfo, with error 31",
                  "GetOverlappedResult failed", "Return from MailBoxDriverInterface::SendIOCtlToDriver()"});
    EXPECT_FALSE(Client().GetCloudProvisioning());
    EXPECT_TRUE(HasLine("INFO", "GetCloudCertInfo failed with error: 31"));
    EXPECT_TRUE(Client().HasCloudData());
    EXPECT_EQ(AllFiles(), kFirst);
}

TEST_F(CloudProvisioning, ATextMayFillItsField) {
    const std::string whole(4096, 'k');
    SetCloud([&](mpm::CloudSettings& cloud) {
        cloud.vCloudKey = cloud.vCloudCert = cloud.vCloudCACert = whole;
        cloud.Hostname = std::string(255, 'h');
    });
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_EQ(AllFiles(), (std::vector<std::string>{std::string(255, 'h'), whole, whole, whole}));
}

TEST_F(CloudProvisioning, ASizeBeyondItsFieldIsRefused) {
    ExpectErrors(
        {"NUBA certificate data has invalid size 4097", "NUBA certificate data has invalid size -16"});
    for (std::optional<uint32_t> mpm::CloudSettings::*size :
         {&mpm::CloudSettings::vCloudCertSize, &mpm::CloudSettings::vCloudKeySize,
          &mpm::CloudSettings::vCloudCACertSize})
        for (const uint32_t value : {4097u, 0xFFFFFFF0u}) {
            SetCloud([&](mpm::CloudSettings& cloud) { cloud.*size = value; });
            ExpectNothing();
            SetCloud([&](mpm::CloudSettings& cloud) { cloud.*size = std::nullopt; });
        }
    EXPECT_EQ(LogCount("NUBA certificate data has invalid size"), 6u);
    ASSERT_TRUE(Client().GetCloudProvisioning());
    SetCloud([](mpm::CloudSettings& cloud) { cloud.vCloudKeySize = 4097; });
    EXPECT_FALSE(Client().GetCloudProvisioning());
    EXPECT_TRUE(Client().HasCloudData());
    EXPECT_EQ(AllFiles(), kFirst);
}

TEST_F(CloudProvisioning, TheFirmwaresWishToBypassTheCloudHasNoEffect) {
    SetCloud([](mpm::CloudSettings& cloud) { cloud.BypassCloud = 1; });
    EXPECT_TRUE(Client().GetCloudProvisioning());
    EXPECT_EQ(AllFiles(), kFirst);
}

// ---- who can read them ----

TEST_F(CloudProvisioning, TheServiceKeepsNoCopyOfTheKey) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    const std::string_view memory(reinterpret_cast<const char*>(&Client()), sizeof(NubaClient));
    EXPECT_NE(memory.find("the certificate"), std::string_view::npos);
    EXPECT_EQ(memory.find("the key"), std::string_view::npos);
}

TEST_F(CloudProvisioning, OnlyTheSystemReadsTheKey) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_FALSE(UserReads(R"(certs\key.pem)"));
    EXPECT_FALSE(UserReads(R"(certs\cert.pem)"));
    EXPECT_FALSE(UserReads("certs"));
    EXPECT_TRUE(UserReads("cloud.txt"));
}

TEST_F(CloudProvisioning, AFolderThatUsersCanReadIsProtectedBeforeTheKeyIsWritten) {
    SHCreateDirectoryExA(nullptr, kCertsFolder, nullptr);
    Write(R"(certs\key.pem)", "an old key");
    ASSERT_TRUE(UserReads("certs"));
    ASSERT_TRUE(UserReads(R"(certs\key.pem)"));
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_TRUE(HasLine("WARN", std::string(kCertsFolder) + " could be read by users and is protected"));
    EXPECT_FALSE(UserReads("certs"));
    EXPECT_FALSE(UserReads(R"(certs\key.pem)"));
    EXPECT_EQ(Read(R"(certs\key.pem)"), "the key");
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_EQ(LogCount("could be read by users"), 1u);
}

TEST_F(CloudProvisioning, ALinkInTheKeysPlaceIsReplaced) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    fs::remove(File(R"(certs\key.pem)"));
    std::ofstream(HostPath("C:\\victim")) << "the victim";
    fs::create_symlink(HostPath("C:\\victim"), File(R"(certs\key.pem)"));
    ASSERT_TRUE(Client().GetCloudProvisioning());
    EXPECT_FALSE(fs::is_symlink(File(R"(certs\key.pem)")));
    std::ifstream victim(HostPath("C:\\victim"));
    EXPECT_EQ((std::string{std::istreambuf_iterator<char>(victim), {}}), "the victim");
}

// ---- where they cannot be written ----

TEST_F(CloudProvisioning, WithoutASecureWorkingFolderNothingIsWritten) {
    ExpectError(
        "ZELService failed to create certs folder in ProgramData path "
        R"(C:\ProgramData\Tarvix\Manageability\certs. This will prevent cloud connection!)");
    service->m_bWorkingFolderSecure = false;
    ExpectNothing();
    EXPECT_FALSE(Exists("certs"));
}

TEST_F(CloudProvisioning, AFileInTheFoldersPlaceIsAnError) {
    ExpectError("ZELService failed to create certs folder in ProgramData path ");
    Write("certs", "");
    EXPECT_FALSE(Client().GetCloudProvisioning());
    EXPECT_FALSE(Exists("cloud.txt"));
    EXPECT_FALSE(Client().HasCloudData());
}

TEST_F(CloudProvisioning, AFullDiskLeavesTheOldFiles) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    ChangeAll();
    FillDiskFor(std::string(kCertsFolder) + R"(\key.pem.new)");
    EXPECT_FALSE(Client().GetCloudProvisioning());
    Gate().Reset();
    EXPECT_TRUE(HasLine("INFO", kKeyFailed));
    EXPECT_EQ(AllFiles(), kFirst);
    EXPECT_EQ(TemporaryFiles(), 0u);
    EXPECT_TRUE(Client().HasCloudData());
}

TEST_F(CloudProvisioning, AFileThatCannotBeReplacedEndsIt) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    ChangeAll();
    Gate().FailNth("MoveFileExA", 1, ERROR_SHARING_VIOLATION);
    EXPECT_FALSE(Client().GetCloudProvisioning());
    EXPECT_TRUE(HasLine("INFO", kHostFailed));
    EXPECT_EQ(AllFiles(), kFirst);
    EXPECT_EQ(TemporaryFiles(), 0u);
}

TEST_F(CloudProvisioning, EachFileThatCannotBeWrittenIsNamed) {
    for (const auto& [file, text] :
         {std::pair{"cloud.txt", kHostFailed},
          std::pair{R"(certs\ca.pem)", "Failed to open cloud CA file for writing"},
          std::pair{R"(certs\cert.pem)", "Failed to open cloud cert file for writing"},
          std::pair{R"(certs\key.pem)", kKeyFailed}}) {
        FillDiskFor(std::string(kWorkingFolder) + file + ".new");
        EXPECT_FALSE(Client().GetCloudProvisioning());
        Gate().Reset();
        EXPECT_TRUE(HasLine("INFO", text));
    }
    EXPECT_FALSE(Exists("cloud.txt"));
}

// ---- the domains ----

class CloudSetup : public CloudFixture {
  protected:
    using Domains = std::vector<std::string>;
};

TEST_F(CloudSetup, TheDomainsAreReadBehindTheFiles) {
    SetDomains(R"(corp.example.com\lab.example.com)");
    Client().SetupCloudServer();
    EXPECT_EQ(Client().Domains(), (Domains{"corp.example.com", "lab.example.com"}));
    ExpectLogInOrder({"Setup Cloud Server", "Writing key to NUBA",
                      R"(MPM Domain String: corp.example.com\lab.example.com)"});
}

TEST_F(CloudSetup, WithoutTheFilesTheDomainsAreNotAskedFor) {
    SetDomains("corp.example.com");
    SetCloud([](mpm::CloudSettings& cloud) { cloud = {}; });
    Client().SetupCloudServer();
    EXPECT_EQ(firmware.Count("GetDomainInfo"), 0u);
    EXPECT_TRUE(Client().Domains().empty());
}

TEST_F(CloudSetup, ASeparatorAtTheEndGivesNoFurtherDomain) {
    SetDomains("corp.example.com\\");
    Client().SetupCloudServer();
    EXPECT_EQ(Client().Domains(), (Domains{"corp.example.com"}));
}

TEST_F(CloudSetup, AnEmptyItemIsADomainThatNothingEquals) {
    SetDomains(R"(\a\\b)");
    Client().SetupCloudServer();
    EXPECT_EQ(Client().Domains(), (Domains{"", "a", "", "b"}));
    EXPECT_TRUE(Client().IsOutsideCorporateNetwork());
}

TEST_F(CloudSetup, ANewListReplacesTheOldOne) {
    SetDomains("a");
    Client().SetupCloudServer();
    SetDomains("b");
    Client().SetupCloudServer();
    EXPECT_EQ(Client().Domains(), Domains{"b"});
}

TEST_F(CloudSetup, TheListMayFillItsField) {
    SetDomains(std::string(1280, 'd'));
    Client().SetupCloudServer();
    EXPECT_EQ(Client().Domains(), Domains{std::string(1280, 'd')});
}

TEST_F(CloudSetup, ALongerListIsRefused) {
    ExpectErrors({"NUBA domain has invalid size 1281", "is beyond the limit permitted for DNS domain 1280"});
    SetDomains("a");
    Client().SetupCloudServer();
    firmware.Change([](mpm::Settings& settings) { settings.DomainSize = 1281; });
    Client().SetupCloudServer();
    EXPECT_EQ(Client().Domains(), Domains{"a"});
}

TEST_F(CloudSetup, AnEmptyListLeavesTheOldOne) {
    SetDomains("a");
    Client().SetupCloudServer();
    SetDomains("");
    Client().SetupCloudServer();
    EXPECT_TRUE(HasLine("INFO", "NUBA domain not configured. Reading size 0"));
    EXPECT_EQ(Client().Domains(), Domains{"a"});
}

TEST_F(CloudSetup, FirmwareThatDoesNotGiveTheListIsAnError) {
    firmware.Refuse("GetDomainInfo", ERROR_GEN_FAILURE);
    ExpectErrors({"Driver IOCTL failed in function GetDomainInfo, with error 31",
                  "GetOverlappedResult failed", "Return from MailBoxDriverInterface::SendIOCtlToDriver()",
                  "GetDomainInfo failed with error: 31"});
    Client().SetupCloudServer();
    EXPECT_TRUE(Client().Domains().empty());
    EXPECT_TRUE(Client().HasCloudData());
}

}  // namespace
