// BSTR texts and VARIANT values.
#pragma once

#include <oaidl.h>

// A copy of the text, null for a null one. SysFreeString takes null too.
BSTR SysAllocString(const OLECHAR* psz);
BSTR SysAllocStringLen(const OLECHAR* strIn, UINT length);
void SysFreeString(BSTR bstrString);
// In characters, without the NUL behind them; 0 for null.
UINT SysStringLen(BSTR bstr);

void VariantInit(VARIANTARG* pvarg);
// Frees what the value owns and makes it VT_EMPTY. DISP_E_BADVARTYPE, with nothing done, for a type that
// VARENUM doesn't name here.
HRESULT VariantClear(VARIANTARG* pvarg);
