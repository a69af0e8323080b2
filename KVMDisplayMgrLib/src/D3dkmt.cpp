#include "KVMDisplayMgrLib/src/D3dkmt.h"

#include "base/LibraryFunction.h"

namespace d3dkmt {
namespace {

template <class Function>
void Find(const Calls::Lookup& lookup, const char* name, Function& function) {
    function = FunctionAt<Function>(lookup(name));
}

}  // namespace

Calls::Calls() {
    m_gdi.Reset(LoadLibraryW(L"gdi32.dll"));
    FindAll([this](const char* name) { return m_gdi ? GetProcAddress(m_gdi.Get(), name) : nullptr; });
}

Calls::Calls(const Lookup& lookup) {
    FindAll(lookup);
}

void Calls::FindAll(const Lookup& lookup) {
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
