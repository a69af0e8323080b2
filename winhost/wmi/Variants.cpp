// BSTR texts and VARIANT values.
#include <oleauto.h>
#include <winbase.h>

#include <atomic>
#include <cstdlib>
#include <cwchar>

#include "winhost/wmi/ComObject.h"

namespace {

std::atomic<size_t> g_live{0};

}  // namespace

size_t winhost::LiveStrings() {
    return g_live;
}

// Nothing here reads the length that Windows keeps ahead of the text.
BSTR SysAllocString(const OLECHAR* psz) {
    WINHOST_GATE("SysAllocString", nullptr);
    BSTR const text = psz ? wcsdup(psz) : nullptr;
    if (text) ++g_live;
    return text;
}

void SysFreeString(BSTR bstrString) {
    WINHOST_GATE_PASS("SysFreeString");
    if (!bstrString) return;
    --g_live;
    std::free(bstrString);
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
