// Graphics adapters, their outputs, and Direct3D devices on them.
#include <d3d10.h>
#include <d3d11.h>
#include <dxgi1_3.h>

#include "winhost/tests/GraphicsFixture.h"

namespace {

using winhost::GraphicsAdapter;

constexpr D3D_FEATURE_LEVEL kLevels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0};

class DxgiTest : public GraphicsFixture {
  protected:
    template <class Interface>
    Interface* Own(Interface* object) {
        return object ? Keep(object, [](Interface* owned) { owned->Release(); }) : object;
    }
    IDXGIFactory* Factory() {
        void* factory = nullptr;
        EXPECT_EQ(S_OK, CreateDXGIFactory(IID_IDXGIFactory, &factory));
        return Own(static_cast<IDXGIFactory*>(factory));
    }
    IDXGIAdapter* Adapter(UINT index = 0) {
        IDXGIAdapter* adapter = nullptr;
        EXPECT_EQ(S_OK, Factory()->EnumAdapters(index, &adapter));
        return Own(adapter);
    }
    HRESULT Make(IDXGIAdapter* adapter, D3D_DRIVER_TYPE type, const D3D_FEATURE_LEVEL* levels = kLevels,
                 UINT count = 2, UINT version = D3D11_SDK_VERSION) {
        const HRESULT result = D3D11CreateDevice(adapter, type, nullptr, 0, levels, count, version, &m_device,
                                                 &m_obtained, nullptr);
        Own(m_device);
        return result;
    }

    ID3D11Device* m_device = nullptr;
    D3D_FEATURE_LEVEL m_obtained{};
};

TEST_F(DxgiTest, AdaptersAreThoseOfTheDescriptionInOrder) {
    Describe({{.description = "First", .vendor = 0x1234, .device = 0x11, .luid = 0x500000001},
              {.description = "Second", .vendor = 0x4321, .luid = 2}});
    DXGI_ADAPTER_DESC desc{};
    ASSERT_EQ(S_OK, Adapter(0)->GetDesc(&desc));
    EXPECT_EQ(L"First", std::wstring(desc.Description));
    EXPECT_EQ(0x1234u, desc.VendorId);
    EXPECT_EQ(0x11u, desc.DeviceId);
    EXPECT_EQ(1u, desc.AdapterLuid.LowPart);
    EXPECT_EQ(5, desc.AdapterLuid.HighPart);
    ASSERT_EQ(S_OK, Adapter(1)->GetDesc(&desc));
    EXPECT_EQ(L"Second", std::wstring(desc.Description));
    IDXGIAdapter* none = Adapter(0);
    EXPECT_EQ(DXGI_ERROR_NOT_FOUND, Factory()->EnumAdapters(2, &none));
    EXPECT_EQ(nullptr, none);
}

TEST_F(DxgiTest, OutputsStandSideBySide) {
    StartPc([](auto& pc) {
        pc.screen = {800, 600};
        pc.graphicsAdapters = {{.outputs = {"\\\\.\\DISPLAY1"}, .luid = 1},
                               {.outputs = {}, .luid = 2},
                               {.outputs = {"\\\\.\\DISPLAY2", "\\\\.\\DISPLAY3"}, .luid = 3}};
    });
    IDXGIOutput* output = nullptr;
    EXPECT_EQ(DXGI_ERROR_NOT_FOUND, Adapter(1)->EnumOutputs(0, &output));
    EXPECT_EQ(nullptr, output);
    EXPECT_EQ(DXGI_ERROR_NOT_FOUND, Adapter(2)->EnumOutputs(2, &output));
    ASSERT_EQ(S_OK, Adapter(2)->EnumOutputs(1, &output));
    Own(output);
    DXGI_OUTPUT_DESC desc{};
    ASSERT_EQ(S_OK, output->GetDesc(&desc));
    EXPECT_EQ(L"\\\\.\\DISPLAY3", std::wstring(desc.DeviceName));
    EXPECT_EQ(1600, desc.DesktopCoordinates.left);
    EXPECT_EQ(2400, desc.DesktopCoordinates.right);
    EXPECT_EQ(0, desc.DesktopCoordinates.top);
    EXPECT_EQ(600, desc.DesktopCoordinates.bottom);
    EXPECT_TRUE(desc.AttachedToDesktop);
    EXPECT_EQ(DXGI_MODE_ROTATION_IDENTITY, desc.Rotation);
    EXPECT_NE(nullptr, desc.Monitor);
}

TEST_F(DxgiTest, APcMayHaveNoAdapter) {
    Describe({});
    IDXGIAdapter* adapter = nullptr;
    EXPECT_EQ(DXGI_ERROR_NOT_FOUND, Factory()->EnumAdapters(0, &adapter));
    EXPECT_EQ(E_INVALIDARG, Make(nullptr, D3D_DRIVER_TYPE_UNKNOWN));
}

TEST_F(DxgiTest, AFactoryAnswersToTheInterfacesOfItsTime) {
    void* found = nullptr;
    EXPECT_EQ(DXGI_ERROR_INVALID_CALL, CreateDXGIFactory(IID_IDXGIFactory, nullptr));
    for (const IID& id : {IID_IUnknown, IID_IDXGIFactory1, IID_IDXGIFactory}) {
        ASSERT_EQ(S_OK, CreateDXGIFactory1(id, &found));
        Own(static_cast<IUnknown*>(found));
        ASSERT_EQ(S_OK, CreateDXGIFactory2(0, id, &found));
        Own(static_cast<IUnknown*>(found));
    }
    auto* later = static_cast<IDXGIFactory*>(found);
    IDXGIAdapter* adapter = nullptr;
    ASSERT_EQ(S_OK, later->EnumAdapters(0, &adapter)) << "it lists the same adapters";
    Own(adapter);
    EXPECT_EQ(DXGI_ERROR_NOT_FOUND, later->EnumAdapters(1, &adapter));
    EXPECT_EQ(DXGI_ERROR_INVALID_CALL, CreateDXGIFactory2(2, IID_IDXGIFactory, &found));
    EXPECT_EQ(E_NOINTERFACE, CreateDXGIFactory1(IID_IDXGIAdapter, &found));
}

TEST_F(DxgiTest, LibrariesHaveTheFunctions) {
    for (const auto& [library, name] : {std::pair(L"Dxgi.dll", "CreateDXGIFactory"),
                                        {L"DXGI", "CreateDXGIFactory1"},
                                        {L"Dxgi.dll", "CreateDXGIFactory2"},
                                        {L"d3d11.dll", "D3D11CreateDevice"}}) {
        const HMODULE module = LoadLibraryW(library);
        ASSERT_NE(nullptr, module);
        EXPECT_NE(nullptr, GetProcAddress(module, name)) << name;
        EXPECT_TRUE(FreeLibrary(module));
    }
}

TEST_F(DxgiTest, EachCallCanFail) {
    IDXGIFactory* factory = Factory();
    IDXGIAdapter* adapter = Adapter();
    IDXGIOutput* output = nullptr;
    ASSERT_EQ(S_OK, adapter->EnumOutputs(0, &output));
    Own(output);
    for (const char* call :
         {"CreateDXGIFactory", "CreateDXGIFactory1", "CreateDXGIFactory2", "IDXGIFactory::EnumAdapters",
          "IDXGIAdapter::EnumOutputs", "IDXGIAdapter::GetDesc", "IDXGIOutput::GetDesc", "D3D11CreateDevice"})
        Fail(call, static_cast<uint32_t>(E_OUTOFMEMORY));
    void* none = nullptr;
    EXPECT_EQ(E_OUTOFMEMORY, CreateDXGIFactory(IID_IDXGIFactory, &none));
    EXPECT_EQ(E_OUTOFMEMORY, CreateDXGIFactory1(IID_IDXGIFactory1, &none));
    EXPECT_EQ(E_OUTOFMEMORY, CreateDXGIFactory2(0, IID_IDXGIFactory, &none));
    EXPECT_EQ(E_OUTOFMEMORY, factory->EnumAdapters(0, &adapter));
    DXGI_ADAPTER_DESC desc;
    EXPECT_EQ(E_OUTOFMEMORY, adapter->EnumOutputs(0, &output));
    EXPECT_EQ(E_OUTOFMEMORY, adapter->GetDesc(&desc));
    DXGI_OUTPUT_DESC outputDesc;
    EXPECT_EQ(E_OUTOFMEMORY, output->GetDesc(&outputDesc));
    EXPECT_EQ(E_OUTOFMEMORY, Make(adapter, D3D_DRIVER_TYPE_UNKNOWN));
}

TEST_F(DxgiTest, ADeviceHasTheFirstLevelThatTheAdapterHas) {
    for (const auto& [described, expected] :
         {std::pair(111u, D3D_FEATURE_LEVEL_11_1), {110u, D3D_FEATURE_LEVEL_11_0}}) {
        Describe({{.featureLevel = described}});
        ASSERT_EQ(S_OK, Make(Adapter(), D3D_DRIVER_TYPE_UNKNOWN));
        EXPECT_EQ(expected, m_obtained);
        EXPECT_EQ(expected, m_device->GetFeatureLevel());
    }
    Describe({{.featureLevel = 101}});
    EXPECT_EQ(DXGI_ERROR_UNSUPPORTED, Make(Adapter(), D3D_DRIVER_TYPE_UNKNOWN));
    EXPECT_EQ(nullptr, m_device);
}

TEST_F(DxgiTest, ThePcMayHaveASoftwareDevice) {
    EXPECT_EQ(E_INVALIDARG, Make(nullptr, D3D_DRIVER_TYPE_SOFTWARE));
    StartPc([](auto& pc) {
        pc.graphicsAdapters = {};
        pc.softwareDirect3d = true;
    });
    EXPECT_EQ(S_OK, Make(nullptr, D3D_DRIVER_TYPE_SOFTWARE));
    EXPECT_EQ(D3D_FEATURE_LEVEL_11_1, m_obtained);
}

TEST_F(DxgiTest, ArgumentsThatDoNotFitAreRefused) {
    IDXGIAdapter* adapter = Adapter();
    EXPECT_EQ(E_INVALIDARG, Make(adapter, D3D_DRIVER_TYPE_SOFTWARE));
    EXPECT_EQ(DXGI_ERROR_UNSUPPORTED, Make(adapter, D3D_DRIVER_TYPE_HARDWARE));
    EXPECT_EQ(E_INVALIDARG, Make(nullptr, D3D_DRIVER_TYPE_UNKNOWN));
    EXPECT_EQ(E_INVALIDARG, Make(adapter, D3D_DRIVER_TYPE_UNKNOWN, kLevels, 0));
    EXPECT_EQ(E_INVALIDARG, Make(adapter, D3D_DRIVER_TYPE_UNKNOWN, kLevels, 2, 6));
    EXPECT_EQ(DXGI_ERROR_UNSUPPORTED, Make(nullptr, D3D_DRIVER_TYPE_WARP));
    EXPECT_EQ(S_FALSE, D3D11CreateDevice(adapter, D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, kLevels, 2, 7, nullptr,
                                         nullptr, nullptr));
}

TEST_F(DxgiTest, ProtectionAgainstThreadsIsKeptByTheDevice) {
    ASSERT_EQ(S_OK, Make(Adapter(), D3D_DRIVER_TYPE_UNKNOWN));
    void* found = nullptr;
    ASSERT_EQ(S_OK, m_device->QueryInterface(IID_ID3D10Multithread, &found));
    auto* multithread = Own(static_cast<ID3D10Multithread*>(found));
    const size_t before = winhost::ComHistory().size();
    EXPECT_FALSE(multithread->SetMultithreadProtected(TRUE));
    EXPECT_TRUE(multithread->SetMultithreadProtected(TRUE));
    EXPECT_TRUE(multithread->GetMultithreadProtected());
    ASSERT_EQ(before + 2, winhost::ComHistory().size());
    EXPECT_EQ("ID3D10Multithread::SetMultithreadProtected(1)", winhost::ComHistory().back());
    ASSERT_EQ(S_OK, multithread->QueryInterface(IID_ID3D11Device, &found));
    EXPECT_EQ(m_device, Own(static_cast<ID3D11Device*>(found)));
    Fail("ID3D11Device::QueryInterface", static_cast<uint32_t>(E_NOINTERFACE));
    EXPECT_EQ(E_NOINTERFACE, m_device->QueryInterface(IID_ID3D10Multithread, &found));
}

TEST_F(DxgiTest, NoApartmentIsNeeded) {
    const size_t before = winhost::StaleComUses();
    ASSERT_EQ(S_OK, Make(Adapter(), D3D_DRIVER_TYPE_UNKNOWN));
    EXPECT_EQ(before, winhost::StaleComUses());
}

TEST_F(DxgiTest, WhatIsNotReleasedShows) {
    const size_t before = winhost::LiveComObjects();
    ID3D11Device* device = nullptr;
    IDXGIAdapter* adapter = Adapter();
    ASSERT_EQ(S_OK, D3D11CreateDevice(adapter, D3D_DRIVER_TYPE_UNKNOWN, nullptr, 0, kLevels, 2, 7, &device,
                                      nullptr, nullptr));
    EXPECT_GT(winhost::LiveComObjects(), before);
    EXPECT_EQ(2u, device->AddRef());
    EXPECT_EQ(1u, device->Release());
    EXPECT_EQ(0u, device->Release());
}

}  // namespace
