// The query for a usable encoder, and the report of its result to the firmware.
#include "KVMDisplayMgrLib/src/EncodeCapability.h"

#include <gmock/gmock.h>

#include "KVMDisplayMgrLib/src/DeviceDX11.h"
#include "KVMDisplayMgrLib/src/LUXFactoryHelper.h"
#include "tests/support/ServiceFixture.h"
#include "tests/support/scripted/Library.h"

using lux::MakeVersion;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::internal::CaptureStdout;
using ::testing::internal::GetCapturedStdout;

class CapabilityTest : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
        script.Reset();
    }
    void TearDown() override {
        EXPECT_EQ(0, script.LiveObjects());
        script.Reset();
        ServiceFixture::TearDown();
    }
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.libraryFolders = {ScriptedLibrary::Folder()};
    }
    int Send() {
        CaptureStdout();
        const int result = SendLuxCapabilityToMPM(factory, service->m_mailBoxDriverInterface);
        output = GetCapturedStdout();
        return result;
    }
    int Query(CapabilityMode mode = kEncoderCapability) {
        CaptureStdout();
        const int result = QueryEncodeCapability(factory, mode, &current, &minimum);
        output = GetCapturedStdout();
        return result;
    }
    // The word that the firmware has got.
    uint32_t Word() const {
        const auto requests = firmware.Requests("WriteCapabilityConfig");
        if (requests.size() != 1 || requests[0].data.size() != 4 || requests[0].code != 0x9C41A494) return 99;
        uint32_t word = 0;
        std::memcpy(&word, requests[0].data.data(), 4);
        return word;
    }
    // Whether the service's own hold is gone.
    bool IsReleased() const { return factory.GetFactory() == nullptr; }

    ScriptedLibrary library;
    scripted::Script& script = library.Script();
    LUXFactoryHelper factory;
    std::string output;
    lux::LUXVersion current = 7, minimum = 7;
};

TEST_F(CapabilityTest, ARuntimeOfTheLowestVersionIsOffered) {
    script.version = MakeVersion(1, 4, 38, 0);
    EXPECT_EQ(1, Send());
    EXPECT_EQ(1u, Word());
    ExpectLogInOrder(
        {"Getting LUX AV1 encode 1 Current version 0x1000400260000 Min supported version "
         "0x1000400260000",
         "Sending LUX capability to MPM. Encode caps: 1",
         "WriteCapabilityConfig: connecting to Driver. Input buffer size = 4"});
    EXPECT_TRUE(IsReleased());
}

TEST_F(CapabilityTest, AnOlderRuntimeWithAnEncoderIsNotOffered) {
    script.version = MakeVersion(1, 4, 37, 0xFFFF);
    EXPECT_EQ(1, Send());
    EXPECT_EQ(0u, Word());
    EXPECT_TRUE(HasLine("INFO",
                        "Getting LUX AV1 encode 1 Current version 0x100040025ffff Min supported version "
                        "0x1000400260000"));
    EXPECT_TRUE(HasLine("INFO", "Sending LUX capability to MPM. Encode caps: 0"));
}

TEST_F(CapabilityTest, WithoutARuntimeTheWordIsSentAllTheSame) {
    Gate().FailNth("LoadLibraryW", 1, ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(0, Send());
    EXPECT_EQ(0u, Word());
    EXPECT_EQ("LUX Failed to initialize", output);
    EXPECT_TRUE(HasLine("INFO", "Getting LUX AV1 encode 0 Current version 0x0 Min supported version 0x0"));
    EXPECT_TRUE(HasLine("INFO", "Sending LUX capability to MPM. Encode caps: 0"));
}

TEST_F(CapabilityTest, ARefusedRecordIsNotReported) {
    firmware.Refuse("WriteCapabilityConfig", ERROR_GEN_FAILURE);
    AllowError("GetOverlappedResult failed");
    AllowError("Return from MailBoxDriverInterface::SendIOCtlToDriver()");
    EXPECT_EQ(1, Send());
}

TEST_F(CapabilityTest, TheVersionsAreStoredOnlyOfALoadedRuntime) {
    script.Next("LUXInit", {lux::LUX_VERSION_TOO_OLD});
    EXPECT_EQ(0, Query());
    EXPECT_EQ(7u, current);
    EXPECT_EQ(7u, minimum);
    // From now on it counts as loaded, without a factory.
    EXPECT_EQ(0, Query());
    EXPECT_EQ(0u, current);
    EXPECT_EQ(LUX_MIN_VERSION, minimum);
    EXPECT_THAT(output, HasSubstr("Failed to instatiate Capability Manager.\n"));
}

TEST_F(CapabilityTest, TheEncoderIsCreatedAndAskedForItsCapabilities) {
    EXPECT_EQ(1, Query());
    EXPECT_EQ(
        "LUX version (header):  1000400210000\nLUX version (runtime): 1000400260000\n"
        "DirectX 11\nQuerying video encoder capabilities...\n",
        output);
    const std::vector<std::string> calls = script.Calls();
    EXPECT_EQ((std::vector<std::string>{"debug.EnableAssertions 0", "factory.CreateContext",
                                        "context.QueryInterface", calls.at(5),
                                        "factory.CreateComponent LUXVideoEncoderHW_AV1",
                                        "LUXVideoEncoderHW_AV1.GetCaps", "context.Terminate"}),
              std::vector<std::string>(calls.begin() + 2, calls.end()));
    EXPECT_EQ(0u, calls.at(5).rfind("context.InitDX11 ", 0));
}

TEST_F(CapabilityTest, TheOtherModeAsksForTheConverter) {
    EXPECT_EQ(1, Query(kConverterCapability));
    EXPECT_EQ(1u, script.Count("LUXVideoConverter.GetCaps"));
    EXPECT_THAT(output, HasSubstr("Querying video converter capabilities...\n"));
    EXPECT_EQ(0u, script.Count("LUXVideoEncoderHW_AV1"));
}

TEST_F(CapabilityTest, AnEncoderThatCannotBeUsedIsNotSupported) {
    for (const auto& [call, answer] :
         {std::pair<const char*, scripted::Answer>{"factory.CreateComponent", {lux::LUX_NOT_SUPPORTED}},
          {"factory.CreateComponent", {lux::LUX_OK, true}},
          {"LUXVideoEncoderHW_AV1.GetCaps", {lux::LUX_FAIL}},
          {"LUXVideoEncoderHW_AV1.GetCaps", {lux::LUX_OK, true}}}) {
        script.Reset();
        script.Always(call, answer);
        EXPECT_EQ(0, Query()) << call;
        EXPECT_THAT(output, HasSubstr("Not supported\n"));
        EXPECT_TRUE(IsReleased());
        EXPECT_EQ(script.Count("factory.CreateContext"), script.Count("context.Terminate"));
    }
}

TEST_F(CapabilityTest, ADeviceThatTheRuntimeRefusesEndsTheQuery) {
    script.Always("context.InitDX11", {lux::LUX_NO_DEVICE});
    EXPECT_EQ(0, Query());
    EXPECT_EQ(1u, script.Count("factory.CreateContext"));
    EXPECT_EQ(1u, script.Count("context.Terminate"));
    EXPECT_EQ(0u, script.Count("factory.CreateComponent"));
    EXPECT_TRUE(IsReleased());
}

TEST_F(CapabilityTest, AContextWithoutTheExtendedInterfaceEndsTheQuery) {
    script.Always("context.QueryInterface", {lux::LUX_NO_INTERFACE});
    EXPECT_EQ(0, Query());
    EXPECT_EQ(1u, script.Count("context.Terminate"));
    EXPECT_TRUE(IsReleased());
}

TEST_F(CapabilityTest, AContextThatCannotBeMadeKeepsTheHold) {
    script.Next("factory.CreateContext", {lux::LUX_OUT_OF_MEMORY});
    EXPECT_EQ(0, Query());
    EXPECT_THAT(output, HasSubstr("Failed to instatiate Capability Manager.\n"));
    EXPECT_FALSE(IsReleased());
}

TEST_F(CapabilityTest, WindowsBefore8HasNoEncoder) {
    winhost::PcDescription old = Pc().Description();
    old.osVersion = "6.1.7601";
    Pc().Reset(old);
    EXPECT_EQ(0, Query());
    EXPECT_EQ(0u, script.Count("context.InitDX11"));
    EXPECT_THAT(output, Not(HasSubstr("too old")));

    old.osVersion = "5.1.2600";
    Pc().Reset(old);
    EXPECT_EQ(0, Query());
    EXPECT_THAT(output, HasSubstr("This version of Windows is too old\n"));

    Gate().FailNth("GetVersionExW", 1, ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(0, Query());
    EXPECT_TRUE(IsReleased());
}

TEST_F(CapabilityTest, ARuntimeWithoutADebugInterfaceIsEnough) {
    script.withoutTrace = true;
    EXPECT_EQ(1, Query());
}

TEST_F(CapabilityTest, TheSecondAdapterDecidesWhenTheFirstHasNoEncoder) {
    winhost::PcDescription pc = Pc().Description();
    pc.graphicsAdapters.assign(3, {});
    for (uint32_t i = 0; i < 3; ++i) {
        pc.graphicsAdapters[i].vendor = GpuVendorId;
        pc.graphicsAdapters[i].luid = pc.graphicsAdapters[i].pciBus = i + 1;
    }
    Pc().Reset(pc);
    script.Next("factory.CreateComponent", {lux::LUX_NOT_SUPPORTED});
    EXPECT_EQ(1, Query());
    EXPECT_EQ(2u, script.Count("factory.CreateContext"));
    EXPECT_EQ(2u, script.Count("context.Terminate"));
    EXPECT_TRUE(IsReleased());

    // The list's end ends the query.
    script.ForgetCalls();
    script.Always("factory.CreateComponent", {lux::LUX_NOT_SUPPORTED});
    EXPECT_EQ(0, Query());
    EXPECT_EQ(3u, script.Count("factory.CreateComponent"));
    EXPECT_EQ(4u, script.Count("context.Terminate"));
}

TEST_F(CapabilityTest, WithoutAnAdapterThereIsNoEncoder) {
    winhost::PcDescription pc = Pc().Description();
    pc.graphicsAdapters.clear();
    Pc().Reset(pc);
    EXPECT_EQ(0, Query());
    EXPECT_EQ(0u, script.Count("factory.CreateComponent"));
    EXPECT_TRUE(IsReleased());
}
