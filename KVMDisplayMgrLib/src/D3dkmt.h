// The D3DKMT calls of gdi32.dll, which talk to the display driver below Direct3D. They are looked up at run
// time, because the SDK of the cross compiler does not declare them and not every Windows has them all.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>

#include "base/Handles.h"

namespace d3dkmt {

using Handle = uint32_t;

struct OpenAdapterFromLuid {
    LUID AdapterLuid;
    Handle hAdapter;
};
struct CloseAdapter {
    Handle hAdapter;
};
struct CreateDevice {
    union {
        Handle hAdapter;
        void* pAdapter;
    };
    uint32_t Flags;
    Handle hDevice;
    void* pCommandBuffer;
    uint32_t CommandBufferSize;
    void* pAllocationList;
    uint32_t AllocationListSize;
    void* pPatchLocationList;
    uint32_t PatchLocationListSize;
};
struct DestroyDevice {
    Handle hDevice;
};
struct CreateContext {
    Handle hDevice;
    uint32_t NodeOrdinal;
    uint32_t EngineAffinity;
    uint32_t Flags;
    void* pPrivateDriverData;
    uint32_t PrivateDriverDataSize;
    uint32_t ClientHint;
    Handle hContext;
    void* pCommandBuffer;
    uint32_t CommandBufferSize;
    void* pAllocationList;
    uint32_t AllocationListSize;
    void* pPatchLocationList;
    uint32_t PatchLocationListSize;
    uint64_t CommandBuffer;
};
struct DestroyContext {
    Handle hContext;
};

enum QueryType : uint32_t { kDriverPrivate = 0, kDriverName = 1, kAdapterAddress = 6 };
struct QueryAdapterInfo {
    Handle hAdapter;
    QueryType Type;
    void* pPrivateDriverData;
    uint32_t PrivateDriverDataSize;
};
struct AdapterAddress {
    uint32_t BusNumber;
    uint32_t DeviceNumber;
    uint32_t FunctionNumber;
};
static_assert(sizeof(AdapterAddress) == 12);
struct DriverName {
    uint32_t Version;
    char16_t UmdFileName[260];
};
static_assert(sizeof(DriverName) == 524);

struct Escape {
    Handle hAdapter;
    Handle hDevice;
    uint32_t Type;  // 0: to the driver
    uint32_t Flags;
    void* pPrivateDriverData;
    uint32_t PrivateDriverDataSize;
    Handle hContext;
};
static_assert(sizeof(Escape) == 32 && offsetof(Escape, pPrivateDriverData) == 16);

// Each call returns an NTSTATUS, 0 on success, and kMissing when this Windows has no such function.
// `arguments` receives the handles.
class Calls {
  public:
    static constexpr int32_t kMissing = static_cast<int32_t>(0xC000007A);  // STATUS_PROCEDURE_NOT_FOUND

    // Finds a function by its name, or returns null.
    using Lookup = std::function<FARPROC(const char* name)>;

    // Those of gdi32.dll.
    Calls();
    explicit Calls(const Lookup& lookup);

    int32_t operator()(OpenAdapterFromLuid& arguments) const { return Call(m_openAdapter, arguments); }
    int32_t operator()(const CloseAdapter& arguments) const { return Call(m_closeAdapter, arguments); }
    int32_t operator()(CreateDevice& arguments) const { return Call(m_createDevice, arguments); }
    int32_t operator()(const DestroyDevice& arguments) const { return Call(m_destroyDevice, arguments); }
    int32_t operator()(CreateContext& arguments) const { return Call(m_createContext, arguments); }
    int32_t operator()(const DestroyContext& arguments) const { return Call(m_destroyContext, arguments); }
    int32_t operator()(const QueryAdapterInfo& arguments) const { return Call(m_query, arguments); }
    int32_t operator()(const Escape& arguments) const { return Call(m_escape, arguments); }

  private:
    template <class Arguments>
    using Function = int32_t(WINAPI*)(Arguments*);

    template <class Arguments>
    static int32_t Call(Function<Arguments> function, Arguments& arguments) {
        return function ? function(&arguments) : kMissing;
    }

    void FindAll(const Lookup& lookup);

    UniqueLibrary m_gdi;
    Function<OpenAdapterFromLuid> m_openAdapter = nullptr;
    Function<const CloseAdapter> m_closeAdapter = nullptr;
    Function<CreateDevice> m_createDevice = nullptr;
    Function<const DestroyDevice> m_destroyDevice = nullptr;
    Function<CreateContext> m_createContext = nullptr;
    Function<const DestroyContext> m_destroyContext = nullptr;
    Function<const QueryAdapterInfo> m_query = nullptr;
    Function<const Escape> m_escape = nullptr;
};

}  // namespace d3dkmt
