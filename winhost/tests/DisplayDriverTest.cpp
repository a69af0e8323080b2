// The display driver of an adapter, through gdi32.dll.
#include "KVMDisplayMgrLib/src/D3dkmt.h"
#include "winhost/tests/GraphicsFixture.h"

namespace {

using winhost::GraphicsAdapter;

constexpr LONG kInvalidParameter = static_cast<LONG>(0xC000000D),
               kNotSupported = static_cast<LONG>(0xC00000BB), kDeviceRemoved = static_cast<LONG>(0xC00002B6),
               kUnsuccessful = static_cast<LONG>(0xC0000001);

// Calls the function of gdi32.dll by its name.
template <class Arguments>
LONG Call(const char* name, Arguments& arguments) {
    const FARPROC found = GetProcAddress(LoadLibraryW(L"gdi32.dll"), name);
    EXPECT_NE(nullptr, found) << name;
    return reinterpret_cast<LONG(WINAPI*)(Arguments*)>(reinterpret_cast<void (*)()>(found))(&arguments);
}

class DisplayDriverTest : public GraphicsFixture {
  protected:
    ~DisplayDriverTest() override { CloseAll(); }

    // The only adapter of the PC, opened in place of the one before.
    void Open(GraphicsAdapter adapter) {
        CloseAll();
        adapter.luid = 0x300000007;
        Describe({adapter});
        d3dkmt::OpenAdapterFromLuid open{{7, 3}, 0};
        ASSERT_EQ(0, Call("D3DKMTOpenAdapterFromLuid", open));
        m_adapter = open.hAdapter;
    }
    void CloseAll() {
        d3dkmt::CloseAdapter close{m_adapter};
        if (m_adapter == 0) return;
        EXPECT_EQ(0, Call("D3DKMTCloseAdapter", close)) << "it was open";
        m_adapter = 0;
    }
    LONG Query(d3dkmt::QueryType type, void* into, size_t size) const {
        d3dkmt::QueryAdapterInfo query{m_adapter, type, into, static_cast<UINT>(size)};
        return Call("D3DKMTQueryAdapterInfo", query);
    }
    LONG Escape(std::vector<uint32_t>&& buffer) const { return Escape(buffer); }
    LONG Escape(std::vector<uint32_t>& buffer) const {
        d3dkmt::Escape escape{};
        escape.hAdapter = m_adapter;
        escape.pPrivateDriverData = buffer.data();
        escape.PrivateDriverDataSize = static_cast<UINT>(buffer.size() * sizeof(uint32_t));
        return Call("D3DKMTEscape", escape);
    }
    // An escape with sizes: 16 bytes of input with the query, 12 of output.
    static std::vector<uint32_t> EscapeBuffer(bool extended, uint32_t code = 0x2000000,
                                              uint32_t query = 0x150013) {
        std::vector<uint32_t> header(32);
        header[0] = 128;
        header[1] = 0x10000;
        header[2] = code;
        header[3] = 1;
        header[19] = 0xBADCAFFE;
        for (const uint32_t number : {16u, 16u, query, 0u, 0u, 12u, 12u, 0u, 0u})
            header.push_back(number);
        if (!extended) return header;
        std::vector<uint32_t> prefix(19);
        prefix[0] = 2;
        prefix[1] = 0x10002;
        prefix[18] = static_cast<uint32_t>(header.size() * sizeof(uint32_t));
        prefix.insert(prefix.end(), header.begin(), header.end());
        return prefix;
    }

    d3dkmt::Handle m_adapter = 0;
};

TEST_F(DisplayDriverTest, AnAdapterIsOpenedByItsLuid) {
    Open({});
    d3dkmt::OpenAdapterFromLuid other{{8, 3}, 0};
    EXPECT_EQ(kInvalidParameter, Call("D3DKMTOpenAdapterFromLuid", other));
    EXPECT_EQ(0u, other.hAdapter);
    const d3dkmt::Handle stale = m_adapter;
    CloseAll();
    d3dkmt::CloseAdapter close{stale};
    EXPECT_EQ(kInvalidParameter, Call("D3DKMTCloseAdapter", close));
}

TEST_F(DisplayDriverTest, ItsPciAddressIsTold) {
    Open({.pciBus = 3, .pciDevice = 2, .pciFunction = 1});
    d3dkmt::AdapterAddress address{};
    ASSERT_EQ(0, Query(d3dkmt::kAdapterAddress, &address, sizeof address));
    EXPECT_EQ(3u, address.BusNumber);
    EXPECT_EQ(2u, address.DeviceNumber);
    EXPECT_EQ(1u, address.FunctionNumber);
    EXPECT_EQ(kInvalidParameter, Query(d3dkmt::kAdapterAddress, &address, sizeof address - 1));
    EXPECT_EQ(kInvalidParameter, Query(d3dkmt::kAdapterAddress, nullptr, sizeof address));
    Open({.hasPciAddress = false});
    EXPECT_EQ(kNotSupported, Query(d3dkmt::kAdapterAddress, &address, sizeof address));
}

TEST_F(DisplayDriverTest, ItsDriverIsTold) {
    Open({.driverPath = "C:\\drivers\\gpu64.dll"});
    d3dkmt::DriverName name{};
    ASSERT_EQ(0, Query(d3dkmt::kDriverName, &name, sizeof name));
    EXPECT_EQ(u"C:\\drivers\\gpu64.dll", std::u16string(name.UmdFileName));
    EXPECT_EQ(kInvalidParameter, Query(d3dkmt::kDriverName, &name, sizeof name - 1));
    Open({});
    EXPECT_EQ(kNotSupported, Query(d3dkmt::kDriverName, &name, sizeof name));
    EXPECT_EQ(kNotSupported, Query(static_cast<d3dkmt::QueryType>(2), &name, sizeof name));
}

TEST_F(DisplayDriverTest, ItsPrivateDataHaveTheirPlaces) {
    Open({.privateData = true, .engineCount = 2, .engines = {7, 48, 255}, .encoderCores = 3});
    std::vector<unsigned char> data(61'792, 0xEE);
    EXPECT_EQ(kInvalidParameter, Query(d3dkmt::kDriverPrivate, data.data(), 2399));
    ASSERT_EQ(0, Query(d3dkmt::kDriverPrivate, data.data(), 2400));
    EXPECT_EQ(2, data[8]);
    EXPECT_EQ(0xEE, data[2400]) << "behind the room";
    ASSERT_EQ(0, Query(d3dkmt::kDriverPrivate, data.data(), data.size()));
    EXPECT_EQ(7, data[4604]);
    EXPECT_EQ(48, data[4605]);
    EXPECT_EQ(255, data[4606]);
    EXPECT_EQ(0, data[4607]);
    EXPECT_EQ(3, data[16'460]);
    Open({});
    EXPECT_EQ(kNotSupported, Query(d3dkmt::kDriverPrivate, data.data(), data.size()));
}

TEST_F(DisplayDriverTest, AnEscapeIsAnsweredAsDescribed) {
    for (const bool extended : {false, true}) {
        Open({.privateData = extended,
              .escapes = {{.code = 0x2000000, .query = 0x150014, .numbers = {12, 8, 8}},
                          {.code = 0x2000000, .query = 0x150013, .numbers = {12, 1, 2}},
                          {.code = 0x2000001, .status = 0xC0000001}}});
        auto buffer = EscapeBuffer(extended);
        ASSERT_EQ(0, Escape(buffer));
        EXPECT_EQ((std::vector<uint32_t>{12, 1, 2}), std::vector<uint32_t>(buffer.end() - 3, buffer.end()));
        EXPECT_EQ(kNotSupported, Escape(EscapeBuffer(extended, 0x2000000, 0x150015)))
            << "no answer to this query";
        EXPECT_EQ(kUnsuccessful, Escape(EscapeBuffer(extended, 0x2000001)));
        EXPECT_EQ(kInvalidParameter, Escape(EscapeBuffer(!extended))) << "the driver has the other layout";
    }
}

TEST_F(DisplayDriverTest, AnEscapeNeedsItsHeader) {
    Open({.escapes = {{.code = 0x2000000, .numbers = {1}},
                      {.code = 1, .numbers = std::vector<uint32_t>(10)}}});
    for (const size_t place : {0, 1, 3, 19}) {
        auto buffer = EscapeBuffer(false);
        ++buffer[place];
        EXPECT_EQ(kInvalidParameter, Escape(buffer)) << place;
    }
    std::vector<uint32_t> shorter = EscapeBuffer(false);
    shorter.resize(31);
    EXPECT_EQ(kInvalidParameter, Escape(shorter));
    EXPECT_EQ(kInvalidParameter, Escape(EscapeBuffer(false, 1))) << "the answer has no room";
}

TEST_F(DisplayDriverTest, DevicesAndContextsAreMadeAndDestroyed) {
    Open({.engines = {41}});
    d3dkmt::CreateDevice device{};
    device.hAdapter = m_adapter;
    ASSERT_EQ(0, Call("D3DKMTCreateDevice", device));
    ASSERT_NE(0u, device.hDevice);
    d3dkmt::CreateContext context{};
    context.hDevice = device.hDevice;
    ASSERT_EQ(0, Call("D3DKMTCreateContext", context));
    ASSERT_NE(0u, context.hContext);
    context.NodeOrdinal = 1;
    EXPECT_EQ(kInvalidParameter, Call("D3DKMTCreateContext", context)) << "the table has one engine";
    d3dkmt::DestroyContext endOfContext{context.hContext};
    EXPECT_EQ(0, Call("D3DKMTDestroyContext", endOfContext));
    EXPECT_EQ(kInvalidParameter, Call("D3DKMTDestroyContext", endOfContext));
    d3dkmt::DestroyDevice endOfDevice{device.hDevice};
    EXPECT_EQ(0, Call("D3DKMTDestroyDevice", endOfDevice));
    EXPECT_EQ(kInvalidParameter, Call("D3DKMTDestroyDevice", endOfDevice));
    device.hAdapter = device.hDevice;
    EXPECT_EQ(kInvalidParameter, Call("D3DKMTCreateDevice", device)) << "that is no adapter";
}

TEST_F(DisplayDriverTest, AnAdapterMayGo) {
    Open({});
    Change([](auto& pc) { pc.graphicsAdapters.clear(); });
    d3dkmt::AdapterAddress address{};
    EXPECT_EQ(kDeviceRemoved, Query(d3dkmt::kAdapterAddress, &address, sizeof address));
}

TEST_F(DisplayDriverTest, EachCallCanFail) {
    Open({});
    const auto result = [](const char* name, auto arguments) {
        Fail(name, 0xC0000001);
        return Call(name, arguments);
    };
    EXPECT_EQ(kUnsuccessful, result("D3DKMTOpenAdapterFromLuid", d3dkmt::OpenAdapterFromLuid{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTCreateDevice", d3dkmt::CreateDevice{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTCreateContext", d3dkmt::CreateContext{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTDestroyContext", d3dkmt::DestroyContext{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTDestroyDevice", d3dkmt::DestroyDevice{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTQueryAdapterInfo", d3dkmt::QueryAdapterInfo{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTEscape", d3dkmt::Escape{}));
    EXPECT_EQ(kUnsuccessful, result("D3DKMTCloseAdapter", d3dkmt::CloseAdapter{m_adapter}));
}

}  // namespace
