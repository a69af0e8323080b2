#include "reporting/WMIInterface.h"

#include "base/Log.h"
#include "base/WideText.h"

namespace {

constexpr LANGID kEnglish = 1033;

template <class Interface>
HRESULT Create(const CLSID& classId, const IID& interfaceId, UniqueInterface<Interface>& result) {
    void* object = nullptr;
    const HRESULT code = CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, interfaceId, &object);
    if (SUCCEEDED(code)) result.Reset(static_cast<Interface*>(object));
    return code;
}

// Requests English texts from WMI. Without this context the connection uses the host's language.
void CreateEnglishContext(UniqueInterface<IWbemContext>& context) {
    if (FAILED(Create(CLSID_WbemContext, IID_IWbemContext, context))) return;
    const UniqueBstr name(L"__Locale");
    Variant locale;
    locale->vt = VT_BSTR;
    locale->bstrVal = SysAllocString(L"MS_409");
    context.Get()->SetValue(name.Get(), 0, locale.Get());
}

void TakeType(IWbemClassObject& system, OsInfo& info) {
    Variant type;
    if (FAILED(system.Get(L"OSType", 0, type.Get(), nullptr, nullptr)) || type->vt != VT_I4) return;
    info.OSType = static_cast<uint16_t>(type->lVal);
    LogInfo("OS Type: %d", info.OSType);
}

void TakeVersion(IWbemClassObject& system, OsInfo& info) {
    Variant version;
    if (FAILED(system.Get(L"Version", 0, version.Get(), nullptr, nullptr)) || version->vt != VT_BSTR ||
        !version->bstrVal)
        return;
    FillUtf16(info.Version, version->bstrVal);
    LogInfo("OS Version: %ls", info.Version);
}

}  // namespace

WMIInterface::WMIInterface() {
    const HRESULT code = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    m_bComInitialized = SUCCEEDED(code);
    if (!m_bComInitialized) LogInfo("Failed to initialize COM library. Error code = 0x%x", code);
}

// CoUninitialize runs before Release; this order is the established one. A service that stops has released
// both interfaces long before.
WMIInterface::~WMIInterface() {
    if (m_bComInitialized) CoUninitialize();
    Release();
}

void WMIInterface::Release() {
    std::lock_guard lock(m_mutex);
    m_pServices.Reset();
    m_pLocator.Reset();
}

HRESULT WMIInterface::DoInit() {
    const HRESULT code = Connect();
    if (FAILED(code)) Release();
    return code;
}

HRESULT WMIInterface::Connect() {
    std::lock_guard lock(m_mutex);
    HRESULT code = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                        RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (FAILED(code)) {
        LogInfo("Failed to initialize security in CoInitializeSecurity. Error code = 0x%x", code);
        return code;
    }
    code = Create(CLSID_WbemLocator, IID_IWbemLocator, m_pLocator);
    if (FAILED(code)) {
        LogInfo("Failed to create IWbemLocator object. Error code = 0x%x", code);
        return code;
    }
    UniqueInterface<IWbemContext> context;
    CreateEnglishContext(context);
    const UniqueBstr nameSpace(L"ROOT\\CIMV2");
    code = m_pLocator.Get()->ConnectServer(nameSpace.Get(), nullptr, nullptr, nullptr, 0, nullptr,
                                           context.Get(), m_pServices.Receive());
    if (FAILED(code)) {
        LogInfo("Could not connect to WMI. Error code = 0x%x", code);
        return code;
    }
    code = CoSetProxyBlanket(m_pServices.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                             RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(code)) {
        LogInfo("Could not set proxy blanket. Error code = 0x%x", code);
    } else {
        LogInfo("%s -- COM initialization is successful.", "DoInit");
    }
    return code;
}

UniqueInterface<IWbemServices> WMIInterface::Services() {
    std::lock_guard lock(m_mutex);
    if (m_pServices) m_pServices.Get()->AddRef();
    return UniqueInterface<IWbemServices>(m_pServices.Get());
}

HRESULT WMIInterface::QueryOperatingSystem(UniqueInterface<IEnumWbemClassObject>& objects) {
    const UniqueInterface<IWbemServices> services = Services();
    if (!services) return CO_E_NOTINITIALIZED;
    const UniqueBstr language(L"WQL");
    const UniqueBstr query(L"SELECT * FROM Win32_OperatingSystem");
    return services.Get()->ExecQuery(language.Get(), query.Get(),
                                     WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                     objects.Receive());
}

HRESULT WMIInterface::GetOSinformation(OsInfo* pDestBuffer) {
    constexpr const char* kName = "GetOSinformation";
    LogInfo("Enter: %s", kName);
    if (!pDestBuffer) {
        LogInfo("%s: pDestBuffer is NULL, returning error", kName);
        return E_POINTER;
    }
    SetThreadUILanguage(kEnglish);
    UniqueInterface<IEnumWbemClassObject> objects;
    const HRESULT code = QueryOperatingSystem(objects);
    if (FAILED(code)) {
        LogInfo("Query for OS information failed. Error code = 0x%x", code);
        return code;
    }
    UniqueInterface<IWbemClassObject> system;
    ULONG count = 0;
    objects.Get()->Next(static_cast<LONG>(WBEM_INFINITE), 1, system.Receive(), &count);
    if (system) {
        TakeType(*system.Get(), *pDestBuffer);
        TakeVersion(*system.Get(), *pDestBuffer);
    }
    LogInfo("Exit: %s", kName);
    return code;
}
