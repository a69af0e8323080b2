// The arguments of the D3DKMT calls. The product declares them itself, and winhost's display driver takes
// them by these declarations, so that both builds compare them with these numbers alone: neither winhost nor
// the SDK of the cross compiler has <d3dkmthk.h>.
#include "tests/sdk/Sdk.h"

#include "KVMDisplayMgrLib/src/D3dkmt.h"

namespace d3dkmt {

SIZE(OpenAdapterFromLuid, 12);
FIELD(OpenAdapterFromLuid, AdapterLuid, 0);
FIELD(OpenAdapterFromLuid, hAdapter, 8);
SIZE(CloseAdapter, 4);
FIELD(CloseAdapter, hAdapter, 0);
SIZE(CreateDevice, 64);
FIELD(CreateDevice, hAdapter, 0);
FIELD(CreateDevice, pAdapter, 0);
FIELD(CreateDevice, Flags, 8);
FIELD(CreateDevice, hDevice, 12);
FIELD(CreateDevice, pCommandBuffer, 16);
FIELD(CreateDevice, CommandBufferSize, 24);
FIELD(CreateDevice, pAllocationList, 32);
FIELD(CreateDevice, AllocationListSize, 40);
FIELD(CreateDevice, pPatchLocationList, 48);
FIELD(CreateDevice, PatchLocationListSize, 56);
SIZE(DestroyDevice, 4);
FIELD(DestroyDevice, hDevice, 0);
SIZE(CreateContext, 96);
FIELD(CreateContext, hDevice, 0);
FIELD(CreateContext, NodeOrdinal, 4);
FIELD(CreateContext, EngineAffinity, 8);
FIELD(CreateContext, Flags, 12);
FIELD(CreateContext, pPrivateDriverData, 16);
FIELD(CreateContext, PrivateDriverDataSize, 24);
FIELD(CreateContext, ClientHint, 28);
FIELD(CreateContext, hContext, 32);
FIELD(CreateContext, pCommandBuffer, 40);
FIELD(CreateContext, CommandBufferSize, 48);
FIELD(CreateContext, pAllocationList, 56);
FIELD(CreateContext, AllocationListSize, 64);
FIELD(CreateContext, pPatchLocationList, 72);
FIELD(CreateContext, PatchLocationListSize, 80);
FIELD(CreateContext, CommandBuffer, 88);
SIZE(DestroyContext, 4);
FIELD(DestroyContext, hContext, 0);
SIZE(QueryAdapterInfo, 24);
FIELD(QueryAdapterInfo, hAdapter, 0);
FIELD(QueryAdapterInfo, Type, 4);
FIELD(QueryAdapterInfo, pPrivateDriverData, 8);
FIELD(QueryAdapterInfo, PrivateDriverDataSize, 16);
SIZE(AdapterAddress, 12);
FIELD(AdapterAddress, BusNumber, 0);
FIELD(AdapterAddress, DeviceNumber, 4);
FIELD(AdapterAddress, FunctionNumber, 8);
SIZE(DriverName, 524);
FIELD(DriverName, Version, 0);
FIELD(DriverName, UmdFileName, 4);
SIZE(Escape, 32);
FIELD(Escape, hAdapter, 0);
FIELD(Escape, hDevice, 4);
FIELD(Escape, Type, 8);
FIELD(Escape, Flags, 12);
FIELD(Escape, pPrivateDriverData, 16);
FIELD(Escape, PrivateDriverDataSize, 24);
FIELD(Escape, hContext, 28);

VALUE(kDriverPrivate, 0);
VALUE(kDriverName, 1);
VALUE(kAdapterAddress, 6);
VALUE(Calls::kMissing, 0xC000007A);

}  // namespace d3dkmt
