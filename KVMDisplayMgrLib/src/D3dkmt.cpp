#include "KVMDisplayMgrLib/src/D3dkmt.h"

#include <utility>

#include "base/LibraryFunction.h"

namespace d3dkmt {
namespace {

template <class Function>
void Find(const Calls::Lookup& lookup, const char* name, Function& function) {
    function = FunctionAt<Function>(lookup(name));
}

}  // namespace

Calls::Calls() : Calls(UniqueLibrary(LoadLibraryW(L"gdi32.dll"))) {}

Calls::Calls(UniqueLibrary gdi)
    : Calls([&gdi](const char* name) { return gdi ? GetProcAddress(gdi.Get(), name) : nullptr; }) {
    m_gdi = std::move(gdi);
}

Calls::Calls(const Lookup& lookup) {
    Find(lookup, "D3DKMTOpenAdapterFromLuid", m_openAdapter);
    Find(lookup, "D3DKMTCloseAdapter", m_closeAdapter);
    Find(lookup, "D3DKMTCreateDevice", m_createDevice);
    Find(lookup, "D3DKMTDestroyDevice", m_destroyDevice);
    Find(lookup, "D3DKMTCreateContext", m_createContext);
    Find(lookup, "D3DKMTDestroyContext", m_destroyContext);
    Find(lookup, "D3DKMTQueryAdapterInfo", m_query);
    Find(lookup, "D3DKMTEscape", m_escape);
}

}  // namespace d3dkmt
