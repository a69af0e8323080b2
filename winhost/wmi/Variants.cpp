// BSTR texts and VARIANT values.
#include <oleauto.h>
#include <winbase.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "winhost/wmi/ComObject.h"

namespace {

// Ahead of the text stands its length in bytes, at the end of a block that keeps malloc's alignment for the
// text.
constexpr size_t kHeader = 8;
std::atomic<size_t> g_live{0};

char* BlockOf(BSTR text) {
    return reinterpret_cast<char*>(text) - kHeader;
}

}  // namespace

size_t winhost::LiveStrings() {
    return g_live;
}

BSTR SysAllocString(const OLECHAR* psz) {
    WINHOST_GATE("SysAllocString", nullptr);
    return psz ? SysAllocStringLen(psz, static_cast<UINT>(std::wcslen(psz))) : nullptr;
}

BSTR SysAllocStringLen(const OLECHAR* strIn, UINT length) {
    WINHOST_GATE("SysAllocStringLen", nullptr);
    const uint32_t bytes = static_cast<uint32_t>(length * sizeof(OLECHAR));
    auto* block = static_cast<char*>(std::malloc(kHeader + bytes + sizeof(OLECHAR)));
    if (!block) return nullptr;
    ++g_live;
    std::memset(block, 0, kHeader + bytes + sizeof(OLECHAR));
    std::memcpy(block + kHeader - sizeof(bytes), &bytes, sizeof(bytes));
    if (strIn) std::memcpy(block + kHeader, strIn, bytes);
    return reinterpret_cast<BSTR>(block + kHeader);
}

void SysFreeString(BSTR bstrString) {
    WINHOST_GATE_PASS("SysFreeString");
    if (!bstrString) return;
    --g_live;
    std::free(BlockOf(bstrString));
}

UINT SysStringLen(BSTR bstr) {
    WINHOST_GATE_PASS("SysStringLen");
    uint32_t bytes = 0;
    if (bstr) std::memcpy(&bytes, BlockOf(bstr) + kHeader - sizeof(bytes), sizeof(bytes));
    return bytes / static_cast<UINT>(sizeof(OLECHAR));
}

void VariantInit(VARIANTARG* pvarg) {
    WINHOST_GATE_PASS("VariantInit");
    *pvarg = {};
}

HRESULT VariantClear(VARIANTARG* pvarg) {
    WINHOST_GATE_HRESULT("VariantClear");
    if (pvarg->vt != VT_EMPTY && pvarg->vt != VT_I4 && pvarg->vt != VT_BSTR) return DISP_E_BADVARTYPE;
    if (pvarg->vt == VT_BSTR) SysFreeString(pvarg->bstrVal);
    pvarg->vt = VT_EMPTY;
    return S_OK;
}
