// The display drivers of the graphics adapters, as gdi32.dll reaches them.
#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include <winbase.h>

#include "KVMDisplayMgrLib/src/D3dkmt.h"
#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/graphics/Adapters.h"
#include "winhost/pc/Pc.h"

namespace winhost {
namespace {

constexpr auto kSuccess = LONG{0}, kInvalidParameter = static_cast<LONG>(0xC000000D),
               kNoMemory = static_cast<LONG>(0xC0000017), kNotSupported = static_cast<LONG>(0xC00000BB),
               kDeviceRemoved = static_cast<LONG>(0xC00002B6);

// The driver's private data, as far as it is known: the engine count, the engine table and the core count.
constexpr size_t kFixedPart = 2400, kEngineBlock = 14848, kMostBlocks = 4;
constexpr size_t kEngineCountAt = 8, kEngineTableAt = 4604, kCoreCountAt = 16460;

// The buffer of an escape: a prefix when the driver has private data, and a header.
constexpr uint32_t kPrefixSize = 76, kHeaderSize = 128, kHeaderVersion = 0x10000, kMagic = 0xBADCAFFE;
constexpr uint32_t kPrefixKind = 2, kPrefixVersion = 0x10002;
constexpr uint32_t kToTheDriver = 0;  // a type of escape

enum class Kind { Adapter, Device, Context };

// What a handle of the driver names: an adapter, or something of it.
template <Kind>
struct DriverObject final : Object {
    explicit DriverObject(uint64_t adapter) : luid(adapter) {}
    bool IsClosedByCloseHandle() const override { return false; }
    const uint64_t luid;
};

HANDLE InTable(d3dkmt::Handle handle) {
    return reinterpret_cast<HANDLE>(uintptr_t{handle});
}

template <Kind kind>
LONG Add(uint64_t luid, d3dkmt::Handle& handle) {
    const HANDLE added = HandleTable::Instance().Add(std::make_shared<DriverObject<kind>>(luid));
    // The table's numbers pass 32 bits with a thousand million handles.
    handle = static_cast<d3dkmt::Handle>(reinterpret_cast<uintptr_t>(added));
    return added ? kSuccess : kNoMemory;
}

template <Kind kind>
LONG Remove(d3dkmt::Handle handle) {
    return HandleTable::Instance().Close<DriverObject<kind>>(InTable(handle)) ? kSuccess : kInvalidParameter;
}

std::optional<GraphicsAdapter> AdapterWith(uint64_t luid) {
    for (const GraphicsAdapter& adapter : Pc::Instance().Description().graphicsAdapters)
        if (adapter.luid == luid) return adapter;
    return std::nullopt;
}

// The adapter of a handle; the error when there is none, or the adapter has gone.
template <Kind kind>
LONG Find(d3dkmt::Handle handle, GraphicsAdapter& adapter) {
    const auto object = HandleTable::Instance().Find<DriverObject<kind>>(InTable(handle));
    if (!object) return kInvalidParameter;
    auto known = AdapterWith(object->luid);
    if (!known) return kDeviceRemoved;
    adapter = std::move(*known);
    return kSuccess;
}

void Put(std::vector<char>& data, size_t at, uint32_t number) {
    std::memcpy(data.data() + at, &number, sizeof number);
}

uint32_t NumberAt(const char* data, size_t at) {
    uint32_t number = 0;
    std::memcpy(&number, data + at, sizeof number);
    return number;
}

// As much of it as the caller has room for, and no less than the fixed part.
LONG GivePrivateData(const GraphicsAdapter& adapter, void* into, size_t room) {
    if (!adapter.privateData) return kNotSupported;
    if (room < kFixedPart) return kInvalidParameter;
    std::vector<char> data(kFixedPart + kMostBlocks * kEngineBlock);
    Put(data, kEngineCountAt, adapter.engineCount);
    for (size_t i = 0; i < adapter.engines.size(); ++i)
        data[kEngineTableAt + i] = static_cast<char>(adapter.engines[i]);
    Put(data, kCoreCountAt, adapter.encoderCores);
    std::memcpy(into, data.data(), std::min(room, data.size()));
    return kSuccess;
}

LONG GiveDriverName(const GraphicsAdapter& adapter, void* into, size_t room) {
    if (room < sizeof(d3dkmt::DriverName)) return kInvalidParameter;
    if (adapter.driverPath.empty()) return kNotSupported;
    d3dkmt::DriverName name{};
    std::memcpy(&name, into, sizeof name);  // the version is the caller's
    size_t length = 0;
    for (const wchar_t character : testbed::FromUtf8(adapter.driverPath))
        if (length + 1 < std::size(name.UmdFileName))
            name.UmdFileName[length++] =
                character <= 0xFFFF ? static_cast<char16_t>(character) : char16_t{0xFFFD};
    name.UmdFileName[length] = 0;
    std::memcpy(into, &name, sizeof name);
    return kSuccess;
}

LONG GiveAddress(const GraphicsAdapter& adapter, void* into, size_t room) {
    if (room < sizeof(d3dkmt::AdapterAddress)) return kInvalidParameter;
    if (!adapter.hasPciAddress) return kNotSupported;
    const d3dkmt::AdapterAddress address{adapter.pciBus, adapter.pciDevice, adapter.pciFunction};
    std::memcpy(into, &address, sizeof address);
    return kSuccess;
}

// Where the header of the escape begins; nothing for a buffer that the driver does not take.
std::optional<size_t> HeaderOf(const GraphicsAdapter& adapter, const char* buffer, size_t size) {
    const size_t header = adapter.privateData ? kPrefixSize : 0;
    if (size < header + kHeaderSize) return std::nullopt;
    if (adapter.privateData && (NumberAt(buffer, 0) != kPrefixKind || NumberAt(buffer, 4) != kPrefixVersion ||
                                NumberAt(buffer, kPrefixSize - 4) != size - kPrefixSize))
        return std::nullopt;
    const bool known = NumberAt(buffer, header) == kHeaderSize &&
                       NumberAt(buffer, header + 4) == kHeaderVersion && NumberAt(buffer, header + 12) == 1 &&
                       NumberAt(buffer, header + 76) == kMagic;
    return known ? std::optional(header) : std::nullopt;
}

LONG AnswerEscape(const GraphicsAdapter& adapter, char* buffer, size_t size) {
    const auto header = HeaderOf(adapter, buffer, size);
    if (!header) return kInvalidParameter;
    const uint32_t code = NumberAt(buffer, *header + 8);
    // The input stands behind its own size, and its second number is the query.
    const size_t queryAt = *header + kHeaderSize + 8;
    const uint32_t query = queryAt + sizeof(uint32_t) <= size ? NumberAt(buffer, queryAt) : 0;
    for (const EscapeAnswer& answer : adapter.escapes) {
        if (answer.code != code || (answer.query != 0 && answer.query != query)) continue;
        if (answer.status != 0) return static_cast<LONG>(answer.status);
        const size_t length = answer.numbers.size() * sizeof(uint32_t);
        if (*header + kHeaderSize + length > size) return kInvalidParameter;
        if (length != 0) std::memcpy(buffer + size - length, answer.numbers.data(), length);
        return kSuccess;
    }
    return kNotSupported;
}

LONG WINAPI OpenAdapterFromLuid(d3dkmt::OpenAdapterFromLuid* arguments) {
    WINHOST_GATE_CODE("D3DKMTOpenAdapterFromLuid");
    const uint64_t luid = NumberOf(arguments->AdapterLuid);
    if (!AdapterWith(luid)) return kInvalidParameter;
    return Add<Kind::Adapter>(luid, arguments->hAdapter);
}

LONG WINAPI CloseAdapter(const d3dkmt::CloseAdapter* arguments) {
    WINHOST_GATE_CODE("D3DKMTCloseAdapter");
    return Remove<Kind::Adapter>(arguments->hAdapter);
}

LONG WINAPI CreateDevice(d3dkmt::CreateDevice* arguments) {
    WINHOST_GATE_CODE("D3DKMTCreateDevice");
    GraphicsAdapter adapter;
    if (const LONG error = Find<Kind::Adapter>(arguments->hAdapter, adapter)) return error;
    return Add<Kind::Device>(adapter.luid, arguments->hDevice);
}

LONG WINAPI DestroyDevice(const d3dkmt::DestroyDevice* arguments) {
    WINHOST_GATE_CODE("D3DKMTDestroyDevice");
    return Remove<Kind::Device>(arguments->hDevice);
}

// On an engine of the table.
LONG WINAPI CreateContext(d3dkmt::CreateContext* arguments) {
    WINHOST_GATE_CODE("D3DKMTCreateContext");
    GraphicsAdapter adapter;
    if (const LONG error = Find<Kind::Device>(arguments->hDevice, adapter)) return error;
    if (arguments->NodeOrdinal >= adapter.engines.size()) return kInvalidParameter;
    return Add<Kind::Context>(adapter.luid, arguments->hContext);
}

LONG WINAPI DestroyContext(const d3dkmt::DestroyContext* arguments) {
    WINHOST_GATE_CODE("D3DKMTDestroyContext");
    return Remove<Kind::Context>(arguments->hContext);
}

LONG WINAPI QueryAdapterInfo(const d3dkmt::QueryAdapterInfo* arguments) {
    WINHOST_GATE_CODE("D3DKMTQueryAdapterInfo");
    GraphicsAdapter adapter;
    if (const LONG error = Find<Kind::Adapter>(arguments->hAdapter, adapter)) return error;
    void* into = arguments->pPrivateDriverData;
    const size_t room = arguments->PrivateDriverDataSize;
    if (!into) return kInvalidParameter;
    switch (arguments->Type) {
        case d3dkmt::kDriverPrivate:
            return GivePrivateData(adapter, into, room);
        case d3dkmt::kDriverName:
            return GiveDriverName(adapter, into, room);
        case d3dkmt::kAdapterAddress:
            return GiveAddress(adapter, into, room);
    }
    return kNotSupported;
}

LONG WINAPI Escape(const d3dkmt::Escape* arguments) {
    WINHOST_GATE_CODE("D3DKMTEscape");
    GraphicsAdapter adapter;
    if (const LONG error = Find<Kind::Adapter>(arguments->hAdapter, adapter)) return error;
    if (arguments->Type != kToTheDriver) return kNotSupported;
    if (!arguments->pPrivateDriverData) return kInvalidParameter;
    return AnswerEscape(adapter, static_cast<char*>(arguments->pPrivateDriverData),
                        arguments->PrivateDriverDataSize);
}

}  // namespace

std::vector<Export> DisplayDriverExports() {
    return {{"D3DKMTOpenAdapterFromLuid", Erased(&OpenAdapterFromLuid)},
            {"D3DKMTCloseAdapter", Erased(&CloseAdapter)},
            {"D3DKMTCreateDevice", Erased(&CreateDevice)},
            {"D3DKMTDestroyDevice", Erased(&DestroyDevice)},
            {"D3DKMTCreateContext", Erased(&CreateContext)},
            {"D3DKMTDestroyContext", Erased(&DestroyContext)},
            {"D3DKMTQueryAdapterInfo", Erased(&QueryAdapterInfo)},
            {"D3DKMTEscape", Erased(&Escape)}};
}

}  // namespace winhost
