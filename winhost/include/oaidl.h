// The VARIANT, with the members that the values of this library need.
#pragma once

#include <wtypes.h>

typedef struct tagVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        VARIANT_BOOL boolVal;
        BSTR bstrVal;
        PVOID byref;
        USHORT uiVal;
        ULONG ulVal;
        INT intVal;
        UINT uintVal;
        struct {
            PVOID pvRecord;
            PVOID pRecInfo;
        };
    };
} VARIANT, VARIANTARG;
