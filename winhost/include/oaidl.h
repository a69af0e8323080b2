// The VARIANT, with the members that the values of this library need.
#pragma once

#include <wtypes.h>

typedef struct tagVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        LONG lVal;
        BSTR bstrVal;
        struct {
            PVOID pvRecord;
            PVOID pRecInfo;
        };
    };
} VARIANT, VARIANTARG;
