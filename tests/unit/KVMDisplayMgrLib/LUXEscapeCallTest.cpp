// Requests to the display driver: what is read of it, the layout of an escape, and failing steps.
#include "KVMDisplayMgrLib/src/LUXEscapeCall.h"

#include <cstring>

#include "tests/unit/KVMDisplayMgrLib/DriverDouble.h"
#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"

namespace {

void Put(Bytes& bytes, size_t offset, uint32_t word) {
    std::memcpy(&bytes[offset], &word, sizeof word);
}

uint32_t Word(const Bytes& bytes, size_t offset) {
    uint32_t word;
    std::memcpy(&word, &bytes.at(offset), sizeof word);
    return word;
}

}  // namespace

class EscapeTest : public PipelineFixture {
  protected:
    static constexpr LUID kLuid{0x1234, 0x56};

    void SetUp() override {
        PipelineFixture::SetUp();
        factory->Init();
        g_driver = {};
    }
    // Both as the driver is at that time.
    LUXEscapeCall& Make() {
        m_escape.reset();
        m_calls = std::make_unique<d3dkmt::Calls>(FindDriverFunction);
        m_escape = std::make_unique<LUXEscapeCall>(*factory, *m_calls);
        return *m_escape;
    }
    LUXEscapeCall& MakeReady(const Bytes& contextData = {}, uint32_t core = 0) {
        LUXEscapeCall& escape = Make();
        const void* const data = contextData.empty() ? nullptr : contextData.data();
        EXPECT_EQ(lux::LUX_OK, escape.Init(kLuid, core, data));
        return escape;
    }
    // A driver with these engines, encoder cores and blocks.
    static void GivePrivateData(const Bytes& engines, uint32_t cores, uint32_t blocks) {
        g_driver.privateData.assign(61792, 0);
        Put(g_driver.privateData, 8, blocks);
        std::copy(engines.begin(), engines.end(), g_driver.privateData.begin() + 4604);
        Put(g_driver.privateData, 16460, cores);
    }
    std::vector<uint32_t> Schedulers(const LUXEscapeCall& escape, uint32_t cores) {
        std::vector<uint32_t> ids;
        for (uint32_t core = 0; core < cores; ++core) {
            uint32_t id = 0;
            ids.push_back(escape.GetSchedulerIdForRdn(core, &id) == lux::LUX_OK ? id : 0);
        }
        return ids;
    }
    void ExpectLine(lux::LUXTraceLevel level, const std::string& message) {
        for (const scripted::TraceLine& line : script.Traces())
            if (line.level == level && line.message == message &&
                line.file == "KVMDisplayMgrLib/src/EscapeCall" && line.scope == "EscapeCall")
                return;
        ADD_FAILURE() << message << "\namong\n" << ::testing::PrintToString(Messages());
    }
    void TearDown() override {
        m_escape.reset();
        PipelineFixture::TearDown();
    }

  private:
    std::unique_ptr<d3dkmt::Calls> m_calls;
    std::unique_ptr<LUXEscapeCall> m_escape;
};

// ---- opening ----

TEST_F(EscapeTest, ADriverWithoutPrivateDataIsOpenedAndClosed) {
    LUXEscapeCall& escape = MakeReady();
    EXPECT_EQ(0x1234u, g_driver.luid.LowPart);
    EXPECT_EQ(0x56, g_driver.luid.HighPart);
    EXPECT_EQ((Names{"Open", "CreateDevice", "QueryPrivate", "QueryName"}), g_driver.calls);
    EXPECT_EQ(std::vector<uint32_t>{2400}, g_driver.queries);
    g_driver.calls.clear();
    EXPECT_EQ(lux::LUX_OK, escape.Terminate());
    EXPECT_EQ((Names{"DestroyDevice", "Close"}), g_driver.calls);
    g_driver.calls.clear();
    escape.Terminate();
    EXPECT_EQ(Names{}, g_driver.calls);
}

TEST_F(EscapeTest, AnAdapterThatCannotBeOpenedFails) {
    g_driver.refused = {"Open"};
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, nullptr));
    ExpectLine(lux::LUX_TRACE_ERROR,
               "Assertion failed:adapterFromLuid.hAdapter != 0: LUXEscapeCall::Init openFromLuid.hAdapter "
               "failed status=-1073741823");
    EXPECT_EQ(Names{"Open"}, g_driver.calls);
}

TEST_F(EscapeTest, ADeviceWithoutAHandleFailsWhateverItsStatus) {
    g_driver.refused = {"DeviceHandle"};
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, nullptr));
    ExpectLine(
        lux::LUX_TRACE_ERROR,
        "Assertion failed:createDev.hDevice != 0: LUXEscapeCall::Init createDev.hDevice failed status=0");
    g_driver.refused = {"CreateDevice"};
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, nullptr));
    ExpectLine(lux::LUX_TRACE_ERROR,
               "Assertion failed:createDev.hDevice != 0: LUXEscapeCall::Init createDev.hDevice failed "
               "status=-1073741823");
}

TEST_F(EscapeTest, AFunctionThatThisWindowsLacksFailsItsStep) {
    g_driver.missing = {"D3DKMTOpenAdapterFromLuid"};
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, nullptr));
    g_driver.missing = {"D3DKMTCreateDevice"};
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, nullptr));
    // Without this one the shorter head is used.
    g_driver.missing = {"D3DKMTQueryAdapterInfo"};
    LUXEscapeCall& escape = Make();
    EXPECT_EQ(lux::LUX_OK, escape.Init(kLuid, 0, nullptr));
    EXPECT_EQ(0, escape.CallEscape(1, nullptr, 0, nullptr, 0, false));
    EXPECT_EQ(128u, g_driver.escapes.back().size());
    g_driver.missing = {"D3DKMTEscape", "D3DKMTDestroyDevice", "D3DKMTCloseAdapter"};
    LUXEscapeCall& without = Make();
    EXPECT_EQ(lux::LUX_OK, without.Init(kLuid, 0, nullptr));
    EXPECT_EQ(1, without.CallEscape(1, nullptr, 0, nullptr, 0, false));
    ExpectLine(lux::LUX_TRACE_DEBUG, "LUXEscapeCall::CallEscape failed status=-1073741702");
    without.Terminate();
    ExpectLine(lux::LUX_TRACE_WARNING, "LUXEscapeCall::Terminate() D3DKMTDestroyDevice status=c000007a");
}

TEST_F(EscapeTest, TheEngineBlocksAreReadUpToFour) {
    for (const auto& [blocks, size] :
         {std::pair(0u, 2400u), {1u, 17248u}, {4u, 61792u}, {5u, 61792u}, {0xFFFFFFFFu, 61792u}}) {
        g_driver.queries.clear();
        GivePrivateData({}, 0, blocks);
        MakeReady();
        EXPECT_EQ((std::vector<uint32_t>{2400, size}), g_driver.queries) << blocks;
    }
}

TEST_F(EscapeTest, ASecondReadingThatFailsEndsTheSetup) {
    GivePrivateData({}, 0, 1);
    g_driver.refuseQuery = 2;
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, nullptr));
}

TEST_F(EscapeTest, TheDriversFolderKeepsItsLastSeparator) {
    for (const auto& [path, folder] : {std::pair(u"C:\\Windows\\driver64.dll", u"C:\\Windows\\"),
                                       {u"C:/a/b\\c/driver.dll", u"C:/a/b\\c/"},
                                       {u"driver.dll", u""}}) {
        g_driver.path = path;
        EXPECT_EQ(folder, MakeReady().DriverPath());
    }
    // A name that fills its field.
    g_driver.path = u"\\" + std::u16string(259, u'x');
    EXPECT_EQ(u"\\", MakeReady().DriverPath());
}

// ---- schedulers ----

TEST_F(EscapeTest, EnginesNameTheSchedulersOfTheFirstTwoCores) {
    struct {
        Bytes engines;
        uint32_t cores;
        std::vector<uint32_t> ids;
    } const kTables[] = {
        {{}, 2, {0, 0}},         {{41}, 2, {41, 0}},      {{48}, 2, {0, 48}},          {{49}, 2, {49, 49}},
        {{41, 48}, 2, {41, 48}}, {{49, 41}, 2, {41, 49}}, {{41, 48, 49}, 2, {49, 49}}, {{48, 41}, 1, {41}},
        {{41, 49}, 0, {}},       {{49}, 3, {49, 49, 0}},
    };
    for (const auto& table : kTables) {
        GivePrivateData(table.engines, table.cores, 4);
        EXPECT_EQ(table.ids, Schedulers(MakeReady(), table.cores)) << ::testing::PrintToString(table.engines);
    }
    // The last byte of the table counts, and the one behind it does not.
    GivePrivateData(Bytes(63, 0), 2, 4);
    g_driver.privateData[4604 + 63] = 41;
    g_driver.privateData[4604 + 64] = 48;
    EXPECT_EQ((std::vector<uint32_t>{41, 0}), Schedulers(MakeReady(), 2));
}

TEST_F(EscapeTest, CoresBeyondTheTableDoNotExist) {
    GivePrivateData({49}, 0xFFFFFFFF, 4);
    LUXEscapeCall& escape = MakeReady();
    uint32_t id = 0;
    EXPECT_EQ(lux::LUX_OK, escape.GetSchedulerIdForRdn(1, &id));
    EXPECT_EQ(lux::LUX_NOT_FOUND, escape.GetSchedulerIdForRdn(64, &id));
}

TEST_F(EscapeTest, ASchedulerNeedsAPlaceToBeStored) {
    EXPECT_EQ(lux::LUX_INVALID_POINTER, MakeReady().GetSchedulerIdForRdn(0, nullptr));
    ExpectLine(lux::LUX_TRACE_ERROR, "Assertion failed:invalid pointer : pSchedulerId");
}

TEST_F(EscapeTest, ContextDataMakeAContextOnTheEngineOfTheCore) {
    GivePrivateData({7, 7, 41, 48}, 2, 4);
    Bytes data(64);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i);
    LUXEscapeCall& escape = MakeReady(data, 1);
    EXPECT_EQ(0xD1u, g_driver.context.hDevice);
    EXPECT_EQ(3u, g_driver.context.NodeOrdinal);
    EXPECT_EQ(data, g_driver.contextData);
    EXPECT_EQ(0, escape.CallEscape(1, nullptr, 0, nullptr, 0, false));
    EXPECT_EQ(0xC1u, g_driver.lastEscape.hContext);
    g_driver.calls.clear();
    g_driver.refused = {"DestroyContext", "DestroyDevice", "Close"};
    escape.Terminate();
    EXPECT_EQ((Names{"DestroyContext", "DestroyDevice", "Close"}), g_driver.calls);
    for (const char* const call : {"D3DKMTDestroyContext", "D3DKMTDestroyDevice", "D3DKMTCloseAdapter"})
        ExpectLine(lux::LUX_TRACE_WARNING,
                   "LUXEscapeCall::Terminate() " + std::string(call) + " status=c0000001");
}

TEST_F(EscapeTest, ACoreWithoutASchedulerGetsNoContext) {
    GivePrivateData({41}, 2, 4);
    const Bytes data(64);
    EXPECT_EQ(lux::LUX_NOT_FOUND, Make().Init(kLuid, 1, data.data()));
    EXPECT_EQ(lux::LUX_NOT_FOUND, Make().Init(kLuid, 2, data.data()));
    ExpectLine(lux::LUX_TRACE_ERROR,
               "LUX_ERROR 11 : the runtime's text: GetSchedulerIdForRdn(rdnIndex, &schedulerId): "
               "LUXEscapeCall::Init cannot GetSchedulerIdForRdn");
    g_driver.refused = {"CreateContext"};
    EXPECT_EQ(lux::LUX_FAIL, Make().Init(kLuid, 0, data.data()));
}

TEST_F(EscapeTest, ASecondInitClosesWhatTheFirstHasOpened) {
    GivePrivateData({41}, 1, 4);
    LUXEscapeCall& escape = MakeReady();
    g_driver.calls.clear();
    g_driver.privateData.clear();
    EXPECT_EQ(lux::LUX_OK, escape.Init(kLuid, 0, nullptr));
    EXPECT_EQ((Names{"DestroyDevice", "Close", "Open", "CreateDevice", "QueryPrivate", "QueryName"}),
              g_driver.calls);
    // Nothing is left of the first driver's data.
    EXPECT_EQ(std::vector<uint32_t>{0}, Schedulers(escape, 1));
    EXPECT_EQ(0, escape.CallEscape(1, nullptr, 0, nullptr, 0, false));
    EXPECT_EQ(128u, g_driver.escapes.back().size());
}

// ---- the escape itself ----

TEST_F(EscapeTest, AnEscapeWithSizesHasItsLayout) {
    LUXEscapeCall& escape = MakeReady();
    const Bytes input = {1, 2, 3};
    Bytes output = {4, 5, 6, 7};
    g_driver.answer = {14, 15, 16, 17};
    EXPECT_EQ(0, escape.CallEscape(0x2000000, input.data(), 3, output.data(), 4, true));
    const Bytes& bytes = g_driver.escapes.at(0);
    ASSERT_EQ(128u + 4 + 3 + 4 + 4, bytes.size());
    Bytes header(128);
    Put(header, 0, 128);
    Put(header, 4, 0x10000);
    Put(header, 8, 0x2000000);
    Put(header, 12, 1);
    Put(header, 76, 0xBADCAFFE);
    EXPECT_EQ(header, Bytes(bytes.begin(), bytes.begin() + 128));
    EXPECT_EQ((Bytes{3, 0, 0, 0, 1, 2, 3, 4, 0, 0, 0, 4, 5, 6, 7}), Bytes(bytes.begin() + 128, bytes.end()));
    EXPECT_EQ((Bytes{14, 15, 16, 17}), output);
    EXPECT_EQ(0xA1u, g_driver.lastEscape.hAdapter);
    EXPECT_EQ(0xD1u, g_driver.lastEscape.hDevice);
    EXPECT_EQ(0u, g_driver.lastEscape.Type);
    EXPECT_EQ(0u, g_driver.lastEscape.hContext);
}

TEST_F(EscapeTest, AnEscapeWithoutSizesIsInputAndOutput) {
    LUXEscapeCall& escape = MakeReady();
    const Bytes input = {1, 2, 3};
    Bytes output = {4, 5};
    g_driver.answer = {14, 15};
    EXPECT_EQ(0, escape.CallEscape(7, input.data(), 3, output.data(), 2, false));
    const Bytes& bytes = g_driver.escapes.at(0);
    ASSERT_EQ(128u + 3 + 2, bytes.size());
    EXPECT_EQ((Bytes{1, 2, 3, 4, 5}), Bytes(bytes.begin() + 128, bytes.end()));
    EXPECT_EQ((Bytes{14, 15}), output);
}

TEST_F(EscapeTest, ADriverWithPrivateDataGetsThePrefix) {
    GivePrivateData({}, 0, 0);
    LUXEscapeCall& escape = MakeReady();
    Bytes output = {4, 5};
    g_driver.answer = {14, 15};
    EXPECT_EQ(0, escape.CallEscape(7, nullptr, 0, output.data(), 2, true));
    const Bytes& bytes = g_driver.escapes.at(0);
    ASSERT_EQ(204u + 2 + 8, bytes.size());
    Bytes prefix(76);
    Put(prefix, 0, 2);
    Put(prefix, 4, 0x10002);
    Put(prefix, 72, static_cast<uint32_t>(bytes.size() - 76));
    EXPECT_EQ(prefix, Bytes(bytes.begin(), bytes.begin() + 76));
    EXPECT_EQ(128u, Word(bytes, 76));
    EXPECT_EQ(7u, Word(bytes, 76 + 8));
    EXPECT_EQ(0xBADCAFFE, Word(bytes, 76 + 76));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 2, 0, 0, 0, 4, 5}), Bytes(bytes.begin() + 204, bytes.end()));
    EXPECT_EQ((Bytes{14, 15}), output);
}

TEST_F(EscapeTest, ARefusedEscapeLeavesTheOutput) {
    LUXEscapeCall& escape = MakeReady();
    g_driver.refused = {"Escape"};
    Bytes output = {4, 5};
    EXPECT_EQ(1, escape.CallEscape(7, nullptr, 0, output.data(), 2, true));
    EXPECT_EQ((Bytes{4, 5}), output);
    ExpectLine(lux::LUX_TRACE_DEBUG, "LUXEscapeCall::CallEscape failed status=-1073741823");
}
