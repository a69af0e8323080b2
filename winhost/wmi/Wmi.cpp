// The locator, the connection that it makes, and the context that goes along.
#include "winhost/wmi/Wmi.h"

#include <oleauto.h>
#include <wbemcli.h>

#include <map>
#include <mutex>
#include <string>

#include "testbed/Utf8.h"
#include "winhost/pc/Pc.h"
#include "winhost/wmi/ComObject.h"
#include "winhost/wmi/Query.h"

namespace winhost {
namespace {

class Context : public ComObject<IWbemContext, IID_IWbemContext> {
  public:
    HRESULT STDMETHODCALLTYPE SetValue(LPCWSTR wszName, LONG lFlags, VARIANT* pValue) override {
        WINHOST_GATE_HRESULT("IWbemContext::SetValue");
        if (!wszName || lFlags != 0 || !pValue || pValue->vt != VT_BSTR || !pValue->bstrVal) {
            return WBEM_E_INVALID_PARAMETER;
        }
        std::lock_guard lock(m_mutex);
        m_values[InSmallLetters(wszName)] = std::wstring(pValue->bstrVal, SysStringLen(pValue->bstrVal));
        return WBEM_S_NO_ERROR;
    }

    HRESULT STDMETHODCALLTYPE GetValue(LPCWSTR wszName, LONG lFlags, VARIANT* pValue) override {
        WINHOST_GATE_HRESULT("IWbemContext::GetValue");
        if (!wszName || lFlags != 0 || !pValue) return WBEM_E_INVALID_PARAMETER;
        std::lock_guard lock(m_mutex);
        const auto found = m_values.find(InSmallLetters(wszName));
        if (found == m_values.end()) return WBEM_E_NOT_FOUND;
        *pValue = {};
        pValue->bstrVal = SysAllocStringLen(found->second.data(), static_cast<UINT>(found->second.size()));
        if (!pValue->bstrVal) return WBEM_E_OUT_OF_MEMORY;
        pValue->vt = VT_BSTR;
        return WBEM_S_NO_ERROR;
    }

    // Empty when there is none. The name is in small letters.
    std::wstring Value(const std::wstring& name) const {
        std::lock_guard lock(m_mutex);
        const auto found = m_values.find(name);
        return found == m_values.end() ? std::wstring() : found->second;
    }

  private:
    mutable std::mutex m_mutex;
    std::map<std::wstring, std::wstring> m_values;
};

// The language that a connection asks for.
std::string LocaleOf(IWbemContext* context) {
    const auto* const own = dynamic_cast<Context*>(context);
    return own ? testbed::ToUtf8(own->Value(L"__locale")) : "of the host";
}

class Services : public ComObject<IWbemServices, IID_IWbemServices>, public Proxy {
  public:
    using Proxy::Proxy;
    ~Services() override { AddToComHistory("release IWbemServices"); }

    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR strQueryLanguage, const BSTR strQuery, LONG lFlags,
                                        IWbemContext*, IEnumWbemClassObject** ppEnum) override {
        WINHOST_GATE_HRESULT("IWbemServices::ExecQuery");
        constexpr LONG kFlags = WBEM_FLAG_RETURN_IMMEDIATELY | WBEM_FLAG_FORWARD_ONLY;
        if (strQueryLanguage && strQuery)
            AddToComHistory("ExecQuery " + testbed::ToUtf8(strQueryLanguage) + ", " +
                            testbed::ToUtf8(strQuery) + ", " + std::to_string(lFlags));
        if (!ppEnum || !strQueryLanguage || !strQuery || lFlags & ~kFlags) return WBEM_E_INVALID_PARAMETER;
        *ppEnum = nullptr;
        if (!Com::Instance().IsReady()) return RPC_E_DISCONNECTED;
        // WMI looks at its data in the name of the caller.
        if (ImpersonationLevel() < RPC_C_IMP_LEVEL_IMPERSONATE) return WBEM_E_ACCESS_DENIED;
        if (const uint32_t error = Pc::Instance().Description().wmiQueryError)
            return static_cast<HRESULT>(error);
        if (InSmallLetters(strQueryLanguage) != L"wql") return WBEM_E_INVALID_QUERY_TYPE;
        const auto name = ClassOfQuery(strQuery);
        if (!name) return WBEM_E_INVALID_QUERY;
        auto instances = InstancesOf(*name);
        // Looked up by then when the call doesn't wait for it.
        if (!instances && !(lFlags & WBEM_FLAG_RETURN_IMMEDIATELY)) return WBEM_E_INVALID_CLASS;
        const HRESULT error = instances ? WBEM_S_NO_ERROR : WBEM_E_INVALID_CLASS;
        *ppEnum = NewEnumerator(instances ? std::move(*instances) : std::vector<WmiInstance>(), error);
        return WBEM_S_NO_ERROR;
    }
};

bool IsCimV2(const BSTR resource) {
    if (!resource) return true;
    const std::wstring name = InSmallLetters(resource);
    return name == L"root\\cimv2" || name == L"\\\\.\\root\\cimv2";
}

class Locator : public ComObject<IWbemLocator, IID_IWbemLocator> {
  public:
    ~Locator() override { AddToComHistory("release IWbemLocator"); }
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR strNetworkResource, const BSTR strUser,
                                            const BSTR strPassword, const BSTR strLocale, LONG lSecurityFlags,
                                            const BSTR strAuthority, IWbemContext* pCtx,
                                            IWbemServices** ppNamespace) override {
        WINHOST_GATE_HRESULT("IWbemLocator::ConnectServer");
        AddToComHistory("ConnectServer " +
                        (strNetworkResource ? testbed::ToUtf8(strNetworkResource) : "null") + ", __Locale " +
                        LocaleOf(pCtx));
        if (!ppNamespace || strLocale || strAuthority || lSecurityFlags != 0) return WBEM_E_INVALID_PARAMETER;
        *ppNamespace = nullptr;
        if (strUser || strPassword) return WBEM_E_LOCAL_CREDENTIALS;
        if (!Com::Instance().IsReady()) return CO_E_NOTINITIALIZED;
        const DWORD impersonationLevel = Com::Instance().UseSecurity();
        if (const uint32_t error = Pc::Instance().Description().wmiConnectError)
            return static_cast<HRESULT>(error);
        if (!IsCimV2(strNetworkResource)) return WBEM_E_INVALID_NAMESPACE;
        *ppNamespace = new Services(impersonationLevel);
        return WBEM_S_NO_ERROR;
    }
};

}  // namespace

IUnknown* NewWmiObject(REFCLSID classId) {
    if (classId == CLSID_WbemLocator) return new Locator;
    if (classId == CLSID_WbemContext) return new Context;
    return nullptr;
}

}  // namespace winhost
