// WMI: the locator, the connection that it makes, the context that goes along, and what a query finds.
#include "winhost/wmi/Wmi.h"

#include <oleauto.h>
#include <wbemcli.h>

#include <algorithm>
#include <cwctype>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>

#include "testbed/Utf8.h"
#include "winhost/pc/Pc.h"
#include "winhost/wmi/ComObject.h"

namespace winhost {
namespace {

std::wstring InSmallLetters(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t c) { return std::towlower(static_cast<wint_t>(c)); });
    return text;
}

// The class of "SELECT * FROM class", in small letters; nothing for any other query.
std::optional<std::wstring> ClassOfQuery(const std::wstring& query) {
    std::wistringstream words(InSmallLetters(query));
    std::wstring select, all, from, name, more;
    words >> select >> all >> from >> name;
    if (select != L"select" || all != L"*" || from != L"from" || name.empty() || words >> more)
        return std::nullopt;
    return name;
}

// The instance of Win32_OperatingSystem.
class System : public ComObject<IWbemClassObject, IID_IWbemClassObject> {
  public:
    HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, LONG lFlags, VARIANT* pVal, CIMTYPE* pType,
                                  LONG* plFlavor) override {
        WINHOST_GATE_METHOD("IWbemClassObject::Get");
        if (!wszName || lFlags != 0 || !pVal || pType || plFlavor) return WBEM_E_INVALID_PARAMETER;
        const std::wstring name = InSmallLetters(wszName);
        if (name != L"ostype" && name != L"version") return WBEM_E_NOT_FOUND;
        *pVal = {};
        if (name == L"ostype") {
            pVal->vt = VT_I4;
            pVal->lVal = static_cast<LONG>(m_type);
        } else {
            pVal->bstrVal = SysAllocString(m_version.c_str());
            if (!pVal->bstrVal) return WBEM_E_OUT_OF_MEMORY;
            pVal->vt = VT_BSTR;
        }
        return WBEM_S_NO_ERROR;
    }

  private:
    const uint32_t m_type = Pc::Instance().Get(&PcDescription::osType);
    const std::wstring m_version = testbed::FromUtf8(Pc::Instance().Get(&PcDescription::osVersion));
};

// Of Win32_OperatingSystem, or of a class that the PC hasn't.
class Enumerator : public ComObject<IEnumWbemClassObject, IID_IEnumWbemClassObject> {
  public:
    explicit Enumerator(bool isKnown) : m_isKnown(isKnown) {}

    HRESULT STDMETHODCALLTYPE Next(LONG lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                   ULONG* puReturned) override {
        WINHOST_GATE_METHOD("IEnumWbemClassObject::Next");
        if (lTimeout < WBEM_INFINITE || !apObjects || !puReturned) return WBEM_E_INVALID_PARAMETER;
        *puReturned = 0;
        if (!m_isKnown) return WBEM_E_INVALID_CLASS;
        if (uCount > 0 && !m_isAtEnd.exchange(true)) apObjects[(*puReturned)++] = new System;
        return *puReturned == uCount ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
    }

  private:
    const bool m_isKnown;
    std::atomic<bool> m_isAtEnd{false};
};

class Context : public ComObject<IWbemContext, IID_IWbemContext> {
  public:
    HRESULT STDMETHODCALLTYPE SetValue(LPCWSTR wszName, LONG lFlags, VARIANT* pValue) override {
        WINHOST_GATE_METHOD("IWbemContext::SetValue");
        if (!wszName || InSmallLetters(wszName) != L"__locale" || lFlags != 0 || !pValue ||
            pValue->vt != VT_BSTR || !pValue->bstrVal)
            return WBEM_E_INVALID_PARAMETER;
        std::lock_guard lock(m_mutex);
        m_locale = pValue->bstrVal;
        return WBEM_S_NO_ERROR;
    }

    // Empty until it is set.
    std::wstring Locale() const {
        std::lock_guard lock(m_mutex);
        return m_locale;
    }

  private:
    mutable std::mutex m_mutex;
    std::wstring m_locale;
};

// The language that a connection asks for.
std::string LocaleOf(IWbemContext* context) {
    const auto* const own = dynamic_cast<Context*>(context);
    return own ? testbed::ToUtf8(own->Locale()) : "of the host";
}

class Services : public ComObject<IWbemServices, IID_IWbemServices>, public Proxy {
  public:
    using Proxy::Proxy;
    ~Services() override { AddToComHistory("release IWbemServices"); }

    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR strQueryLanguage, const BSTR strQuery, LONG lFlags,
                                        IWbemContext*, IEnumWbemClassObject** ppEnum) override {
        WINHOST_GATE_METHOD("IWbemServices::ExecQuery");
        constexpr LONG kFlags = WBEM_FLAG_RETURN_IMMEDIATELY | WBEM_FLAG_FORWARD_ONLY;
        if (strQueryLanguage && strQuery)
            AddToComHistory("ExecQuery " + testbed::ToUtf8(strQueryLanguage) + ", " +
                            testbed::ToUtf8(strQuery) + ", " + std::to_string(lFlags));
        if (!ppEnum || !strQueryLanguage || !strQuery || lFlags != kFlags) return WBEM_E_INVALID_PARAMETER;
        *ppEnum = nullptr;
        // WMI looks at its data in the name of the caller.
        if (ImpersonationLevel() < RPC_C_IMP_LEVEL_IMPERSONATE) return WBEM_E_ACCESS_DENIED;
        if (const uint32_t error = Pc::Instance().Get(&PcDescription::wmiQueryError))
            return static_cast<HRESULT>(error);
        if (InSmallLetters(strQueryLanguage) != L"wql") return WBEM_E_INVALID_QUERY_TYPE;
        const auto name = ClassOfQuery(strQuery);
        if (!name) return WBEM_E_INVALID_QUERY;
        *ppEnum = new Enumerator(name == L"win32_operatingsystem");
        return WBEM_S_NO_ERROR;
    }
};

bool IsCimV2(const BSTR resource) {
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
        WINHOST_GATE_METHOD("IWbemLocator::ConnectServer");
        AddToComHistory("ConnectServer " +
                        (strNetworkResource ? testbed::ToUtf8(strNetworkResource) : "null") + ", __Locale " +
                        LocaleOf(pCtx));
        if (!ppNamespace || !strNetworkResource || strLocale || strAuthority || lSecurityFlags != 0)
            return WBEM_E_INVALID_PARAMETER;
        *ppNamespace = nullptr;
        if (strUser || strPassword) return WBEM_E_LOCAL_CREDENTIALS;
        const DWORD impersonationLevel = Com::Instance().UseSecurity();
        if (const uint32_t error = Pc::Instance().Get(&PcDescription::wmiConnectError))
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
