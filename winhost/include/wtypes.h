// What COM writes texts and variants in.
#pragma once

#include <minwindef.h>

typedef WCHAR OLECHAR;
typedef OLECHAR* BSTR;  // its length stands ahead of the text
typedef unsigned short VARTYPE;

enum VARENUM { VT_EMPTY = 0, VT_I4 = 3, VT_BSTR = 8 };

typedef enum tagCLSCTX {
    CLSCTX_INPROC_SERVER = 0x1,
} CLSCTX;
