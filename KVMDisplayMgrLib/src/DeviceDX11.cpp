#include "KVMDisplayMgrLib/src/DeviceDX11.h"

#include <d3d10.h>

#include <algorithm>
#include <span>

#include "KVMDisplayMgrLib/src/LUXEscapeCall.h"
#include "base/FieldText.h"
#include "base/LibraryFunction.h"

using namespace lux;

namespace {

template <class Interface>
void** Receive(UniqueInterface<Interface>& owner) {
    return reinterpret_cast<void**>(owner.Receive());
}

UniqueInterface<IDXGIFactory> CreateFactory() {
    UniqueInterface<IDXGIFactory> factory;
    {
        using CreateFactory2 = HRESULT(WINAPI*)(UINT, REFIID, void**);
        const UniqueLibrary dxgi(LoadLibraryW(L"Dxgi.dll"));
        const auto create = LibraryFunction<CreateFactory2>(dxgi.Get(), "CreateDXGIFactory2");
        if (create && SUCCEEDED(create(0, IID_IDXGIFactory, Receive(factory)))) return factory;
    }
    if (FAILED(CreateDXGIFactory1(IID_IDXGIFactory1, Receive(factory)))) factory.Reset();
    return factory;
}

UniqueInterface<IDXGIOutput> FirstOutput(IDXGIAdapter& adapter) {
    UniqueInterface<IDXGIOutput> output;
    if (FAILED(adapter.EnumOutputs(0, output.Receive()))) output.Reset();
    return output;
}

}  // namespace

LUX_RESULT DeviceDX11::Init(uint32_t adapterSlot, bool onlyWithOutputs, bool onlyThisVendor,
                            bool keepDuplicates) {
    EnumerateAdapters(onlyWithOutputs, onlyThisVendor, keepDuplicates);
    if (adapterSlot >= std::max<size_t>(m_adapters.size(), 1)) return LUX_FAIL;
    const uint32_t index = m_adapters.empty() ? 0 : m_adapters[adapterSlot];

    const UniqueInterface<IDXGIFactory> factory = CreateFactory();
    UniqueInterface<IDXGIAdapter> adapter;
    if (!factory || FAILED(factory.Get()->EnumAdapters(index, adapter.Receive())) || !adapter)
        return LUX_FAIL;
    DXGI_ADAPTER_DESC description{};
    if (SUCCEEDED(adapter.Get()->GetDesc(&description))) m_luid = description.AdapterLuid;
    if (const auto output = FirstOutput(*adapter.Get())) {
        DXGI_OUTPUT_DESC desc{};
        if (SUCCEEDED(output.Get()->GetDesc(&desc))) m_displayDeviceName = TextInField(desc.DeviceName);
    }
    return CreateDevice(adapter.Get()) ? LUX_OK : LUX_FAIL;
}

bool DeviceDX11::CreateDevice(IDXGIAdapter* adapter) {
    static constexpr D3D_FEATURE_LEVEL kLevels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0};
    const std::span<const D3D_FEATURE_LEVEL> both = kLevels, older = both.subspan(1);
    const struct {
        IDXGIAdapter* adapter;
        D3D_DRIVER_TYPE type;
        std::span<const D3D_FEATURE_LEVEL> levels;
    } attempts[] = {
        {adapter, D3D_DRIVER_TYPE_UNKNOWN, both},
        {adapter, D3D_DRIVER_TYPE_UNKNOWN, older},
        {nullptr, D3D_DRIVER_TYPE_SOFTWARE, both},
        {nullptr, D3D_DRIVER_TYPE_SOFTWARE, older},
    };
    const bool isCreated = std::ranges::any_of(attempts, [this](const auto& attempt) {
        return SUCCEEDED(D3D11CreateDevice(attempt.adapter, attempt.type, nullptr, 0, attempt.levels.data(),
                                           static_cast<UINT>(attempt.levels.size()), D3D11_SDK_VERSION,
                                           m_device.Receive(), nullptr, nullptr));
    });
    if (!isCreated || !m_device) return false;
    UniqueInterface<ID3D10Multithread> multithread;
    if (SUCCEEDED(m_device.Get()->QueryInterface(IID_ID3D10Multithread, Receive(multithread))) &&
        multithread) {
        multithread.Get()->SetMultithreadProtected(TRUE);
    }
    return true;
}

UniqueInterface<ID3D11Device> DeviceDX11::GetDevice() const {
    if (m_device) m_device.Get()->AddRef();
    return UniqueInterface<ID3D11Device>(m_device.Get());
}

void DeviceDX11::EnumerateAdapters(bool onlyWithOutputs, bool onlyThisVendor, bool keepDuplicates) {
    UniqueInterface<IDXGIFactory> factory;
    if (FAILED(CreateDXGIFactory(IID_IDXGIFactory, Receive(factory)))) return;
    m_adapters.clear();
    std::vector<std::string> seen;
    for (uint32_t index = 0;; ++index) {
        UniqueInterface<IDXGIAdapter> adapter;
        if (FAILED(factory.Get()->EnumAdapters(index, adapter.Receive())) || !adapter) return;
        DXGI_ADAPTER_DESC description{};
        if (FAILED(adapter.Get()->GetDesc(&description))) continue;
        if (!keepDuplicates) {
            const std::string key = AdapterKey(description.AdapterLuid);
            if (key.empty() || std::ranges::find(seen, key) != seen.end()) continue;
            seen.push_back(key);
        }
        if (onlyThisVendor && description.VendorId != GpuVendorId) continue;
        if (!onlyWithOutputs || FirstOutput(*adapter.Get()) || AdapterDrivesDisplay(*adapter.Get())) {
            m_adapters.push_back(index);
        }
    }
}

// "bus,device,function"; empty when the adapter has no such address.
std::string DeviceDX11::AdapterKey(const LUID& luid) const {
    const d3dkmt::Calls& call = m_displayDriver;
    d3dkmt::OpenAdapterFromLuid open{luid, 0};
    if (call(open) != 0) return "";
    std::string key;
    d3dkmt::AdapterAddress address{};
    const int32_t status =
        call(d3dkmt::QueryAdapterInfo{open.hAdapter, d3dkmt::kAdapterAddress, &address, sizeof address});
    if (status == 0 && address.BusNumber < 256 && address.DeviceNumber < 32 && address.FunctionNumber < 8) {
        key = std::to_string(address.BusNumber) + "," + std::to_string(address.DeviceNumber) + "," +
              std::to_string(address.FunctionNumber);
    }
    call(d3dkmt::CloseAdapter{open.hAdapter});
    return key;
}

// Asks the driver of an adapter that has no output of its own.
bool DeviceDX11::AdapterDrivesDisplay(IDXGIAdapter& adapter) const {
    constexpr uint32_t kEscapeCode = 0x2000000;
    const struct {
        uint32_t size = 16;
        uint32_t query = 0x150013;
        uint64_t argument = 0;
    } input;
    struct {
        uint32_t size = 12;
        uint32_t words[2] = {};
    } output;
    static_assert(sizeof input == 16 && sizeof output == 12);

    DXGI_ADAPTER_DESC description{};
    if (FAILED(adapter.GetDesc(&description))) return false;
    LUXEscapeCall escape(m_factory, m_displayDriver);
    if (escape.Init(description.AdapterLuid, 0, nullptr) != LUX_OK) return false;
    if (escape.CallEscape(kEscapeCode, &input, sizeof input, &output, sizeof output, true) != 0) return false;
    return output.words[0] != 0 && output.words[1] != 0;
}
