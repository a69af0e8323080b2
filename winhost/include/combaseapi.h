// COM: apartments, security, and objects by their class.
#pragma once

#include <rpcdce.h>
#include <unknwn.h>
#include <winerror.h>
#include <wtypes.h>

typedef enum tagCOINIT { COINIT_MULTITHREADED = 0x0 } COINIT;
typedef enum tagEOLE_AUTHENTICATION_CAPABILITIES { EOAC_NONE = 0 } EOLE_AUTHENTICATION_CAPABILITIES;
typedef struct tagSOLE_AUTHENTICATION_SERVICE SOLE_AUTHENTICATION_SERVICE;
typedef PVOID PSECURITY_DESCRIPTOR;

// The apartment of many threads alone: E_INVALIDARG. S_FALSE when the calling thread is in it already: that
// call too wants its CoUninitialize.
HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
void CoUninitialize();
// Once in the life of the process's COM, and before any object of another process is met: RPC_E_TOO_LATE
// after that. No descriptor, services or capabilities of the caller's own: E_INVALIDARG.
HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc,
                             SOLE_AUTHENTICATION_SERVICE* asAuthSvc, void* pReserved1, DWORD dwAuthnLevel,
                             DWORD dwImpLevel, void* pAuthList, DWORD dwCapabilities, void* pReserved3);
// Memory that a library gives away. It is that of malloc, so that a shared object of Linux can give some away
// without winhost.
void CoTaskMemFree(LPVOID pv);
// The classes of <wbemcli.h>, in process and without aggregation.
HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv);
// E_NOINTERFACE for an object that is no proxy.
HRESULT CoSetProxyBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                          DWORD dwAuthnLevel, DWORD dwImpLevel, RPC_AUTH_IDENTITY_HANDLE pAuthInfo,
                          DWORD dwCapabilities);
