#pragma once

#include <minwindef.h>

DECLARE_HANDLE(HWND);
