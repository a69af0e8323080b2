// Which adapter is chosen, and which device is made on it.
#include "KVMDisplayMgrLib/src/DeviceDX11.h"

#include <d3d10.h>

#include "tests/unit/KVMDisplayMgrLib/PipelineFixture.h"
#include "winhost/pc/GraphicsAdapter.h"

using winhost::GraphicsAdapter;

namespace {

// Its LUID is the number, and its address too.
GraphicsAdapter AdapterNumber(uint32_t number, uint32_t vendor = GpuVendorId) {
    GraphicsAdapter adapter;
    adapter.vendor = vendor;
    adapter.luid = number;
    adapter.pciBus = number;
    adapter.outputs = {R"(\\.\DISPLAY)" + std::to_string(number)};
    return adapter;
}

GraphicsAdapter WithoutOutput(uint32_t number, std::vector<uint32_t> answer) {
    GraphicsAdapter adapter = AdapterNumber(number);
    adapter.outputs = {};
    if (!answer.empty()) adapter.escapes = {{0x2000000, 0x150013, 0, answer}};
    return adapter;
}

}  // namespace

class DeviceTest : public PipelineFixture {
  protected:
    static void SetAdapters(const std::vector<GraphicsAdapter>& adapters) {
        winhost::PcDescription pc = Pc().Description();
        pc.graphicsAdapters = adapters;
        Pc().Reset(pc);
    }
    // The LUIDs of the adapters in the slots, up to the first that fails.
    std::vector<uint32_t> Slots(bool onlyWithOutputs = true, bool onlyThisVendor = true,
                                bool keepDuplicates = false) {
        std::vector<uint32_t> luids;
        for (uint32_t slot = 0;; ++slot) {
            DeviceDX11 device(*factory);
            if (device.Init(slot, onlyWithOutputs, onlyThisVendor, keepDuplicates) != lux::LUX_OK)
                return luids;
            luids.push_back(device.AdapterLuid().LowPart);
            if (luids.size() > 9) return luids;
        }
    }
};

using Luids = std::vector<uint32_t>;

TEST_F(DeviceTest, TheDeviceIsOnTheAdapterAndProtected) {
    SetAdapters({AdapterNumber(7)});
    DeviceDX11 device(*factory);
    EXPECT_FALSE(device.GetDevice());
    EXPECT_EQ(lux::LUX_OK, device.Init(0, true, true, false));
    EXPECT_EQ(7u, device.AdapterLuid().LowPart);
    EXPECT_EQ(0, device.AdapterLuid().HighPart);
    EXPECT_EQ(LR"(\\.\DISPLAY7)", device.DisplayDeviceName());
    const auto made = device.GetDevice();
    ASSERT_TRUE(made);
    EXPECT_EQ(D3D_FEATURE_LEVEL_11_1, made.Get()->GetFeatureLevel());
    UniqueInterface<ID3D10Multithread> multithread;
    ASSERT_TRUE(SUCCEEDED(
        made.Get()->QueryInterface(IID_ID3D10Multithread, reinterpret_cast<void**>(multithread.Receive()))));
    EXPECT_TRUE(multithread.Get()->GetMultithreadProtected());
    device.Terminate();
    EXPECT_FALSE(device.GetDevice());
}

TEST_F(DeviceTest, OnlyAdaptersOfTheVendorAreInTheList) {
    SetAdapters({AdapterNumber(1, 0x1AF4), AdapterNumber(2), AdapterNumber(3, 0x1AF4), AdapterNumber(4)});
    EXPECT_EQ((Luids{2, 4}), Slots());
    EXPECT_EQ((Luids{1, 2, 3, 4}), Slots(true, false));
}

TEST_F(DeviceTest, WithoutAnAcceptableAdapterTheFirstOfTheMachineIsTaken) {
    SetAdapters({AdapterNumber(1, 0x1AF4), AdapterNumber(2, 0x1AF4)});
    EXPECT_EQ(Luids{1}, Slots());
}

TEST_F(DeviceTest, WithoutAnyAdapterThereIsNoDevice) {
    SetAdapters({});
    EXPECT_EQ(Luids{}, Slots());
}

TEST_F(DeviceTest, AnAdapterWithoutOutputCountsWhenItsDriverSaysThatItDrivesADisplay) {
    SetAdapters({WithoutOutput(1, {12, 1, 0}), WithoutOutput(2, {12, 0, 1}), WithoutOutput(3, {12, 1, 2}),
                 WithoutOutput(4, {}), WithoutOutput(5, {12, 0, 0}), AdapterNumber(6)});
    EXPECT_EQ((Luids{3, 6}), Slots());
    EXPECT_EQ((Luids{1, 2, 3, 4, 5, 6}), Slots(false));
    SetAdapters({WithoutOutput(3, {12, 1, 2})});
    DeviceDX11 device(*factory);
    EXPECT_EQ(lux::LUX_OK, device.Init(0, true, true, false));
    EXPECT_EQ(L"", device.DisplayDeviceName());
}

TEST_F(DeviceTest, ADriverWithPrivateDataIsAskedInTheLongerForm) {
    GraphicsAdapter adapter = WithoutOutput(2, {12, 1, 1});
    adapter.privateData = true;
    SetAdapters({AdapterNumber(1), adapter});
    EXPECT_EQ((Luids{1, 2}), Slots());
}

TEST_F(DeviceTest, TwoLuidsOfOneFunctionCountOnce) {
    std::vector<GraphicsAdapter> adapters = {AdapterNumber(1), AdapterNumber(2), AdapterNumber(3)};
    adapters[1].pciBus = 1;
    SetAdapters(adapters);
    EXPECT_EQ((Luids{1, 3}), Slots());
    EXPECT_EQ((Luids{1, 2, 3}), Slots(true, true, true));
    // Adapters are different when any one of the three numbers of their addresses differs.
    adapters[1].pciFunction = 1;
    SetAdapters(adapters);
    EXPECT_EQ((Luids{1, 2, 3}), Slots());
    adapters[1].pciFunction = 0;
    adapters[1].pciDevice = 1;
    SetAdapters(adapters);
    EXPECT_EQ((Luids{1, 2, 3}), Slots());
}

TEST_F(DeviceTest, AnAdapterWithoutAnAddressDoesNotCount) {
    std::vector<GraphicsAdapter> adapters(5);
    for (uint32_t i = 0; i < adapters.size(); ++i)
        adapters[i] = AdapterNumber(i + 1);
    adapters[0].hasPciAddress = false;
    adapters[1].pciBus = 256;
    adapters[2].pciDevice = 32;
    adapters[3].pciFunction = 8;
    SetAdapters(adapters);
    EXPECT_EQ(Luids{5}, Slots());
    adapters[1].pciBus = 255;
    adapters[2].pciDevice = 31;
    adapters[3].pciFunction = 7;
    SetAdapters(adapters);
    EXPECT_EQ((Luids{2, 3, 4, 5}), Slots());
}

TEST_F(DeviceTest, ADuplicateOfAnotherVendorHidesTheAdapterBehindIt) {
    std::vector<GraphicsAdapter> adapters = {AdapterNumber(1, 0x1AF4), AdapterNumber(2), AdapterNumber(3)};
    adapters[1].pciBus = 1;
    SetAdapters(adapters);
    EXPECT_EQ(Luids{3}, Slots());
}

TEST_F(DeviceTest, AnAdapterOfFeatureLevel11IsEnough) {
    GraphicsAdapter adapter = AdapterNumber(1);
    adapter.featureLevel = 110;
    SetAdapters({adapter});
    DeviceDX11 device(*factory);
    EXPECT_EQ(lux::LUX_OK, device.Init(0, true, true, false));
    EXPECT_EQ(D3D_FEATURE_LEVEL_11_0, device.GetDevice().Get()->GetFeatureLevel());
}

TEST_F(DeviceTest, ASoftwareDeviceStandsInForOneThatCannotBeMade) {
    GraphicsAdapter adapter = AdapterNumber(1);
    adapter.featureLevel = 101;
    SetAdapters({adapter});
    EXPECT_EQ(Luids{}, Slots());
    winhost::PcDescription pc = Pc().Description();
    pc.softwareDirect3d = true;
    Pc().Reset(pc);
    EXPECT_EQ(Luids{1}, Slots());
}

TEST_F(DeviceTest, FactoriesThatCannotBeMade) {
    SetAdapters({AdapterNumber(1)});
    const auto init = [&] {
        DeviceDX11 device(*factory);
        return device.Init(0, true, true, false);
    };
    // The newer call is replaced by the older one.
    Gate().FailNth("CreateDXGIFactory2", 1, 0x887A0004);
    EXPECT_EQ(lux::LUX_OK, init());
    Gate().Reset();
    Gate().FailNth("CreateDXGIFactory2", 1, 0x887A0004);
    Gate().FailNth("CreateDXGIFactory1", 1, 0x887A0004);
    EXPECT_EQ(lux::LUX_FAIL, init());
    Gate().Reset();
    // Without a list the first adapter of the machine is taken.
    Gate().FailNth("CreateDXGIFactory", 1, 0x887A0004);
    EXPECT_EQ(lux::LUX_OK, init());
}

TEST_F(DeviceTest, APipelineWithoutADeviceFailsOnlyInItsFirstAttempt) {
    SetAdapters({});
    DisplayCapturePipeline& pipeline = Make();
    EXPECT_EQ(lux::LUX_FAIL, pipeline.InitContext());
    ExpectFailure(lux::LUX_FAIL, "m_deviceDX11.Init() failed");
    EXPECT_EQ(0u, script.Count("context.InitDX11"));
    EXPECT_EQ(lux::LUX_OK, pipeline.InitContext());
}
