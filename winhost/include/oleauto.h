// BSTR texts and VARIANT values.
#pragma once

#include <oaidl.h>

// A copy of the text, null for a null one. SysFreeString takes null too.
BSTR SysAllocString(const OLECHAR* psz);
void SysFreeString(BSTR bstrString);

void VariantInit(VARIANTARG* pvarg);
// Frees what the value owns and makes it VT_EMPTY. DISP_E_BADVARTYPE, with nothing done, for a type that
// VARENUM doesn't name here.
HRESULT VariantClear(VARIANTARG* pvarg);
