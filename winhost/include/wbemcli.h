// WMI: the interfaces, with the methods that the product calls.
#pragma once

#include <combaseapi.h>
#include <oaidl.h>

typedef LONG CIMTYPE;

enum WBEM_GENERIC_FLAG_TYPE {
    WBEM_FLAG_RETURN_IMMEDIATELY = 0x10,
    WBEM_FLAG_FORWARD_ONLY = 0x20,
};
enum WBEM_TIMEOUT_TYPE { WBEM_INFINITE = -1 };

enum WBEMSTATUS : HRESULT {
    WBEM_S_NO_ERROR = 0,
    WBEM_S_FALSE = 1,
    WBEM_E_FAILED = (HRESULT)0x80041001U,
    WBEM_E_NOT_FOUND = (HRESULT)0x80041002U,
    WBEM_E_ACCESS_DENIED = (HRESULT)0x80041003U,
    WBEM_E_OUT_OF_MEMORY = (HRESULT)0x80041006U,
    WBEM_E_INVALID_PARAMETER = (HRESULT)0x80041008U,
    WBEM_E_INVALID_NAMESPACE = (HRESULT)0x8004100EU,
    WBEM_E_INVALID_CLASS = (HRESULT)0x80041010U,
    WBEM_E_TRANSPORT_FAILURE = (HRESULT)0x80041015U,
    WBEM_E_INVALID_QUERY = (HRESULT)0x80041017U,
    WBEM_E_INVALID_QUERY_TYPE = (HRESULT)0x80041018U,
    WBEM_E_SHUTTING_DOWN = (HRESULT)0x80041033U,
    WBEM_E_LOCAL_CREDENTIALS = (HRESULT)0x80041064U
};

DEFINE_GUID(CLSID_WbemLocator, 0x4590f811, 0x1d3a, 0x11d0, 0x89, 0x1f, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);
DEFINE_GUID(CLSID_WbemContext, 0x674b6698, 0xee92, 0x11d0, 0xad, 0x71, 0x00, 0xc0, 0x4f, 0xd8, 0xfd, 0xff);
DEFINE_GUID(IID_IWbemClassObject, 0xdc12a681, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);
DEFINE_GUID(IID_IWbemLocator, 0xdc12a687, 0x737f, 0x11cf, 0x88, 0x4d, 0x00, 0xaa, 0x00, 0x4b, 0x2e, 0x24);
DEFINE_GUID(IID_IEnumWbemClassObject, 0x027947e1, 0xd731, 0x11ce, 0xa3, 0x57, 0x00, 0x00, 0x00, 0x00, 0x00,
            0x01);
DEFINE_GUID(IID_IWbemContext, 0x44aca674, 0xe8fc, 0x11d0, 0xa0, 0x7c, 0x00, 0xc0, 0x4f, 0xb6, 0x88, 0x20);
DEFINE_GUID(IID_IWbemServices, 0x9556dc99, 0x828c, 0x11cf, 0xa3, 0x7e, 0x00, 0xaa, 0x00, 0x32, 0x40, 0xc7);

struct IWbemServices;

struct IWbemContext : public IUnknown {
    // "__Locale" as a text; all else gives WBEM_E_INVALID_PARAMETER.
    virtual HRESULT STDMETHODCALLTYPE SetValue(LPCWSTR wszName, LONG lFlags, VARIANT* pValue) = 0;
};

struct IWbemClassObject : public IUnknown {
    // WBEM_E_NOT_FOUND for a property that the object hasn't. A number of 16 bits comes as VT_I4. The type
    // and the flavor are not returned: both have to be null.
    virtual HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, LONG lFlags, VARIANT* pVal, CIMTYPE* pType,
                                          LONG* plFlavor) = 0;
};

struct IEnumWbemClassObject : public IUnknown {
    // WBEM_S_FALSE when fewer than uCount were left. A class that the PC hasn't is reported here, as
    // WBEM_E_INVALID_CLASS.
    virtual HRESULT STDMETHODCALLTYPE Next(LONG lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                           ULONG* puReturned) = 0;
};

struct IWbemServices : public IUnknown {
    // WQL, "SELECT * FROM" a class that the PC has (Win32_OperatingSystem: OSType, Version), with both flags.
    // WBEM_E_ACCESS_DENIED unless the proxy lets WMI impersonate the caller.
    virtual HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR strQueryLanguage, const BSTR strQuery, LONG lFlags,
                                                IWbemContext* pCtx, IEnumWbemClassObject** ppEnum) = 0;
};

struct IWbemLocator : public IUnknown {
    // Of this PC, as the process's user: WBEM_E_LOCAL_CREDENTIALS for another one; locale and authority have
    // to be null. The namespace is ROOT\CIMV2.
    virtual HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR strNetworkResource, const BSTR strUser,
                                                    const BSTR strPassword, const BSTR strLocale,
                                                    LONG lSecurityFlags, const BSTR strAuthority,
                                                    IWbemContext* pCtx, IWbemServices** ppNamespace) = 0;
};
