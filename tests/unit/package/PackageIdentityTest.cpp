// Whether the service runs from a package, and from which.
#include <string_view>
#include <thread>

#include "tests/unit/package/PackageFixture.h"

namespace {

class PackageIdentity : public PackageFixture {
  protected:
    const PackageContext& Context() const { return service->m_packageContext; }
    void ExpectNone(const std::string& line) {
        EXPECT_FALSE(IsRunningFromMSIXPackage());
        EXPECT_EQ(LinesWith("IsRunningFromMSIXPackage: ").back(), line);
        EXPECT_EQ("", Context().m_packageFullName);
    }
};

class ClassicInstall : public PackageFixture {
  protected:
    void Describe(winhost::PcDescription& description) override { ServiceFixture::Describe(description); }
};

}  // namespace

TEST_F(PackageIdentity, ThePackageIsNamedWithItsFolder) {
    EXPECT_TRUE(IsRunningFromMSIXPackage());
    EXPECT_EQ(kFullName, Context().m_packageFullName);
    EXPECT_EQ(kPackage, Context().m_packagePath);
    EXPECT_EQ((std::vector<std::string>{
                  std::string("INFO IsRunningFromMSIXPackage: Package Full Name: ") + kFullName,
                  std::string("INFO IsRunningFromMSIXPackage: Package Full Path: ") + kPackage}),
              LinesWith("IsRunningFromMSIXPackage: "));
}

TEST_F(PackageIdentity, AFolderBeyondAsciiIsConverted) {
    Pc().Change([](auto& pc) { pc.package.path = R"(D:\Ünïcode\Paket)"; });
    EXPECT_TRUE(IsRunningFromMSIXPackage());
    EXPECT_EQ(R"(D:\Ünïcode\Paket)", Context().m_packagePath);
}

TEST_F(PackageIdentity, AFailureOfTheNameIsLogged) {
    Gate().FailNth("GetCurrentPackageFullName", 1, 15702);
    ExpectNone("INFO IsRunningFromMSIXPackage: GetCurrentPackageFullName failed with error: 15702");
    ExpectError("IsRunningFromMSIXPackage: GetCurrentPackageFullName 2nd call failed with error: 15702");
    Gate().FailNth("GetCurrentPackageFullName", 2, 15702);
    ExpectNone("ERROR IsRunningFromMSIXPackage: GetCurrentPackageFullName 2nd call failed with error: 15702");
}

TEST_F(PackageIdentity, AFailureOfTheFolderIsLogged) {
    ExpectErrors({"IsRunningFromMSIXPackage: GetCurrentPackagePath failed with error: 15702",
                  "IsRunningFromMSIXPackage: GetCurrentPackagePath 2nd call failed with error: 5"});
    Gate().FailNth("GetCurrentPackagePath", 1, 15702);
    ExpectNone("ERROR IsRunningFromMSIXPackage: GetCurrentPackagePath failed with error: 15702");
    Gate().FailNth("GetCurrentPackagePath", 2, 5);
    ExpectNone("ERROR IsRunningFromMSIXPackage: GetCurrentPackagePath 2nd call failed with error: 5");
}

TEST_F(PackageIdentity, AFolderThatCannotBeConvertedIsNone) {
    ExpectError("IsRunningFromMSIXPackage: GetCurrentPackagePath 2nd call failed with error: 8");
    int calls = 0;
    Gate().Ask([&](const char* call, const void*) -> uint32_t {
        if (std::string_view(call) == "GetCurrentPackagePath") ++calls;
        return calls == 2 && std::string_view(call) == "WideCharToMultiByte" ? 8 : 0;
    });
    EXPECT_FALSE(IsRunningFromMSIXPackage());
    EXPECT_EQ("", Context().m_packagePath);
}

TEST_F(ClassicInstall, NoneOfThePackagesOperationsRun) {
    std::thread start([&] { Initialise(); });
    PassSleepOf(std::chrono::seconds(1));
    start.join();
    EXPECT_FALSE(service->m_packageContext.GetIsPackage());
    EXPECT_TRUE(HasLine("INFO", "IsRunningFromMSIXPackage: Process has no package identity: 15700"));
    ExpectLogInOrder(
        {"Enter ZEL Initialization Block", "Process has no package identity", "hKeyParent is passed."});
    EXPECT_EQ(0u, Gate().Count("CopyFileA"));
    EXPECT_EQ(0u, Gate().Count("system"));
    AllowError("");
    service->ServiceCleanup();
    EXPECT_EQ(0u, Gate().Count("system"));
    EXPECT_EQ(0u, LogCount("for MSIX package"));
    EXPECT_EQ(0u, LogCount("DeleteFile() API failed"));
}
