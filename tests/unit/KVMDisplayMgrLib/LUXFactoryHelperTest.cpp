// The runtime's library: what it is asked when it is loaded, and how often it is held.
#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

#include "winhost/kernel/Libraries.h"

using Calls = std::vector<std::string>;

class FactoryTest : public PipelineFixture {};

TEST_F(FactoryTest, LoadingAsksForTheFactoryAndThenForTheVersion) {
    script.version = lux::MakeVersion(1, 4, 40, 7);
    EXPECT_EQ(lux::LUX_OK, factory->Init());
    EXPECT_EQ((Calls{"LUXInit 1.4.33.0", "LUXQueryVersion"}), script.Calls());
    EXPECT_NE(nullptr, factory->GetFactory());
    EXPECT_NE(nullptr, factory->GetDebug());
    EXPECT_NE(nullptr, factory->GetTrace());
    EXPECT_EQ(0x1000400280007u, factory->GetLUXVersion());
}

TEST_F(FactoryTest, TheLibraryIsFreedWithTheLastHold) {
    const size_t before = winhost::LoadedSharedObjects();
    factory->Init();
    factory->Init();
    EXPECT_EQ(1u, script.Count("LUXInit"));
    factory->Terminate();
    EXPECT_NE(nullptr, factory->GetFactory());
    EXPECT_EQ(before + 1, winhost::LoadedSharedObjects());
    factory->Terminate();
    EXPECT_EQ(nullptr, factory->GetFactory());
    EXPECT_EQ(nullptr, factory->GetDebug());
    EXPECT_EQ(nullptr, factory->GetTrace());
    EXPECT_EQ(before, winhost::LoadedSharedObjects());
    factory->Terminate();
    factory->Init();
    EXPECT_EQ(2u, script.Count("LUXInit"));
    EXPECT_NE(nullptr, factory->GetFactory());
}

TEST_F(FactoryTest, AMissingLibraryIsAskedForAgain) {
    EXPECT_EQ(lux::LUX_FAIL, factory->Init(L"nosuchrt.dll"));
    EXPECT_EQ(lux::LUX_FAIL, factory->Init(L"nosuchrt.dll"));
    EXPECT_EQ(nullptr, factory->GetFactory());
    EXPECT_EQ(lux::LUX_OK, factory->Init());
    EXPECT_NE(nullptr, factory->GetFactory());
}

TEST_F(FactoryTest, ALibraryWithoutInitCountsAsLoadedFromThenOn) {
    LUXFactoryHelper other;
    EXPECT_EQ(lux::LUX_FAIL, other.Init(ScriptedLibrary::kWithoutInit));
    EXPECT_EQ(lux::LUX_OK, other.Init());
    EXPECT_EQ(nullptr, other.GetFactory());
    EXPECT_EQ(0u, other.GetLUXVersion());
}

TEST_F(FactoryTest, ALibraryWithoutAVersionHasAFactoryOnly) {
    LUXFactoryHelper other;
    EXPECT_EQ(lux::LUX_FAIL, other.Init(ScriptedLibrary::kWithoutVersion));
    EXPECT_EQ(lux::LUX_OK, other.Init());
    EXPECT_NE(nullptr, other.GetFactory());
    EXPECT_EQ(nullptr, other.GetTrace());
    EXPECT_EQ(0u, other.GetLUXVersion());
}

TEST_F(FactoryTest, TheResultsOfTheFunctionsAreReturned) {
    script.Next("LUXInit", {lux::LUX_VERSION_TOO_OLD});
    EXPECT_EQ(lux::LUX_VERSION_TOO_OLD, factory->Init());
    EXPECT_EQ(0u, script.Count("LUXQueryVersion"));
    EXPECT_EQ(lux::LUX_OK, factory->Init());
    EXPECT_EQ(1u, script.Count("LUXInit"));

    LUXFactoryHelper second;
    script.Next("LUXQueryVersion", {lux::LUX_OUT_OF_MEMORY});
    EXPECT_EQ(lux::LUX_OUT_OF_MEMORY, second.Init());
    EXPECT_EQ(lux::LUX_OK, second.Init());
    EXPECT_EQ(nullptr, second.GetTrace());
}

TEST_F(FactoryTest, ARuntimeWithoutAFactoryFails) {
    script.withoutFactory = true;
    EXPECT_EQ(lux::LUX_FAIL, factory->Init());
    EXPECT_EQ(nullptr, factory->GetTrace());
}

TEST_F(FactoryTest, HoldsOfAHalfLoadedLibraryAreCountedToo) {
    script.Next("LUXInit", {lux::LUX_FAIL});
    factory->Init();
    factory->Init();
    factory->Terminate();
    // The last hold has freed it: the next Init loads it again.
    EXPECT_EQ(lux::LUX_OK, factory->Init());
    EXPECT_EQ(2u, script.Count("LUXInit"));
    EXPECT_NE(nullptr, factory->GetFactory());
}
