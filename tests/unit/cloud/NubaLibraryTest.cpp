// The file of the cloud library, which may be missing or incomplete.
#include <gtest/gtest.h>

#include "tests/unit/cloud/CloudFixture.h"

namespace {

class CloudLibrary : public CloudFixture {};

}  // namespace

TEST_F(CloudLibrary, AMissingLibraryIsLoggedOnce) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
    Client().startNUBA();
    Client().startNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(LogCount("Start NUBA from ZEL"), 2u);
    EXPECT_EQ(LogCount("nubaapi.dll"), 1u);
    EXPECT_TRUE(
        HasLine("WARN", "NUBA: nubaapi.dll cannot be loaded, error: 126. There is no cloud connection"));
    // It is found when it comes later.
    InstallLibrary();
    Client().startNUBA();
    EXPECT_TRUE(AwaitConnections(1));
    Client().stopNUBA();
}

TEST_F(CloudLibrary, EachOfItsFunctionsIsNeeded) {
    ASSERT_TRUE(Client().GetCloudProvisioning());
#define NAME(name, type) #name,
    for (const std::string function : {NUBA_FUNCTIONS(NAME)}) {
#undef NAME
        InstallLibraryWithout(function);
        NubaLibrary library;
        EXPECT_EQ(library.Load(), nullptr);
        EXPECT_TRUE(HasLine(
            "WARN", "NUBA: nubaapi.dll has no function " + function + ". There is no cloud connection"));
        EXPECT_EQ(GetModuleHandleA("nubaapi.dll"), nullptr);
        std::filesystem::remove(Installed());
    }
}

TEST_F(CloudLibrary, WithoutOneOfItsFunctionsThereIsNoConnection) {
    InstallLibraryWithout("nuba_server_deinit");
    ASSERT_TRUE(Client().GetCloudProvisioning());
    Client().startNUBA();
    Client().startNUBA();
    EXPECT_FALSE(Client().IsRunning());
    EXPECT_EQ(LogCount("nubaapi.dll has no function nuba_server_deinit"), 1u);
}

TEST_F(CloudLibrary, WhatIsNoLibraryIsNotUsed) {
    std::filesystem::create_directories(HostPath(kLibraryFolder));
    std::ofstream(Installed()) << "no library";
    ASSERT_TRUE(Client().GetCloudProvisioning());
    Client().startNUBA();
    EXPECT_TRUE(
        HasLine("WARN", "NUBA: nubaapi.dll cannot be loaded, error: 193. There is no cloud connection"));
}
