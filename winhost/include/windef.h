#pragma once

#include <minwindef.h>

DECLARE_HANDLE(HWND);
DECLARE_HANDLE(HMONITOR);

typedef struct tagRECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
} RECT, *PRECT, *LPRECT;
