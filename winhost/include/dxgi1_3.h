#pragma once

#include <dxgi.h>

// As CreateDXGIFactory1. Flags other than 0 give DXGI_ERROR_INVALID_CALL.
HRESULT WINAPI CreateDXGIFactory2(UINT flags, REFIID iid, void** factory);
