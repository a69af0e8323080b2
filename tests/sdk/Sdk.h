// What the files of this folder assert of the platform's headers. Both builds compile them, the native one
// with the headers of winhost and the Windows one with those of the real SDK, and both sides are compared
// with the numbers that stand here.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <fileapi.h>
#include <iphlpapi.h>
#include <powrprof.h>
#include <psapi.h>
#include <setupapi.h>
#include <share.h>
#include <shlobj.h>
#include <tlhelp32.h>
#include <userenv.h>
#include <wbemidl.h>
#include <wininet.h>
#include <wlanapi.h>
#include <wtsapi32.h>
#include <d3d10.h>
#include <d3d11.h>
#include <dxgi1_3.h>
#include <mmsystem.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

// A constant, by the 32 bits of its value.
#define VALUE(name, value) static_assert(static_cast<uint32_t>(name) == (value), #name)
#define SIZE(type, size) static_assert(sizeof(type) == (size), #type)
#define FIELD(type, member, offset) static_assert(offsetof(type, member) == (offset), #type "." #member)
