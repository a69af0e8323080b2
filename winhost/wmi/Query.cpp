#include "winhost/wmi/Query.h"

#include <oleauto.h>

#include <algorithm>
#include <cwctype>
#include <mutex>
#include <sstream>

#include "testbed/Utf8.h"
#include "winhost/pc/Pc.h"
#include "winhost/wmi/ComObject.h"

namespace winhost {
namespace {

HRESULT Put(const WmiProperty& property, VARIANT& value, CIMTYPE& type) {
    value = {};
    if (const auto* number = std::get_if<uint16_t>(&property)) {
        value.vt = VT_I4;
        value.lVal = *number;
        type = CIM_UINT16;
        return WBEM_S_NO_ERROR;
    }
    const auto& text = std::get<std::wstring>(property);
    value.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!value.bstrVal) return WBEM_E_OUT_OF_MEMORY;
    value.vt = VT_BSTR;
    type = CIM_STRING;
    return WBEM_S_NO_ERROR;
}

class ClassObject : public ComObject<IWbemClassObject, IID_IWbemClassObject> {
  public:
    explicit ClassObject(WmiInstance instance) : m_instance(std::move(instance)) {}

    HRESULT STDMETHODCALLTYPE Get(LPCWSTR wszName, LONG lFlags, VARIANT* pVal, CIMTYPE* pType,
                                  LONG* plFlavor) override {
        WINHOST_GATE_HRESULT("IWbemClassObject::Get");
        if (!wszName || lFlags != 0) return WBEM_E_INVALID_PARAMETER;
        const auto found = m_instance.find(InSmallLetters(wszName));
        if (found == m_instance.end()) return WBEM_E_NOT_FOUND;
        VARIANT value;
        CIMTYPE type = 0;
        if (const HRESULT error = Put(found->second, value, type)) return error;
        if (pVal) {
            *pVal = value;
        } else {
            VariantClear(&value);
        }
        if (pType) *pType = type;
        if (plFlavor) *plFlavor = 0;
        return WBEM_S_NO_ERROR;
    }

  private:
    const WmiInstance m_instance;
};

class Enumerator : public ComObject<IEnumWbemClassObject, IID_IEnumWbemClassObject> {
  public:
    Enumerator(std::vector<WmiInstance> instances, HRESULT error)
        : m_instances(std::move(instances)), m_error(error) {}

    HRESULT STDMETHODCALLTYPE Next(LONG lTimeout, ULONG uCount, IWbemClassObject** apObjects,
                                   ULONG* puReturned) override {
        WINHOST_GATE_HRESULT("IEnumWbemClassObject::Next");
        if (lTimeout < WBEM_INFINITE || !apObjects || !puReturned) return WBEM_E_INVALID_PARAMETER;
        *puReturned = 0;
        if (m_error != 0) return m_error;
        std::lock_guard lock(m_mutex);
        while (*puReturned < uCount && m_next < m_instances.size()) {
            apObjects[(*puReturned)++] = new ClassObject(m_instances[m_next++]);
        }
        return *puReturned == uCount ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
    }

  private:
    const std::vector<WmiInstance> m_instances;
    const HRESULT m_error;
    std::mutex m_mutex;
    size_t m_next = 0;
};

}  // namespace

std::wstring InSmallLetters(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t c) { return std::towlower(static_cast<wint_t>(c)); });
    return text;
}

std::optional<std::wstring> ClassOfQuery(const std::wstring& query) {
    std::wistringstream words(InSmallLetters(query));
    std::wstring select, all, from, name, more;
    words >> select >> all >> from >> name;
    if (select != L"select" || all != L"*" || from != L"from" || name.empty() || words >> more)
        return std::nullopt;
    return name;
}

std::optional<std::vector<WmiInstance>> InstancesOf(const std::wstring& lowerClass) {
    if (lowerClass != L"win32_operatingsystem") return std::nullopt;
    const auto pc = Pc::Instance().Description();
    return std::vector<WmiInstance>{
        {{L"ostype", static_cast<uint16_t>(pc.osType)}, {L"version", testbed::FromUtf8(pc.osVersion)}}};
}

IEnumWbemClassObject* NewEnumerator(std::vector<WmiInstance> instances, HRESULT error) {
    return new Enumerator(std::move(instances), error);
}

}  // namespace winhost
