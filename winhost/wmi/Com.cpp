// Apartments, security, and objects by their class.
#include <initguid.h>
// Defines the classes and interfaces, ahead of what uses them.
#include <wbemcli.h>

#include <cstdlib>
#include <mutex>

#include "winhost/wmi/ComObject.h"
#include "winhost/wmi/Wmi.h"

namespace winhost {
namespace {

thread_local unsigned t_entered = 0;  // how often the calling thread has entered the apartment
std::atomic<size_t> g_staleUses{0};

struct History {
    std::mutex mutex;
    std::vector<std::string> calls;
};

}  // namespace

std::atomic<size_t>& ComObjectCount::Value() {
    static std::atomic<size_t> count{0};
    return count;
}

size_t LiveComObjects() {
    return ComObjectCount::Value();
}

size_t StaleComUses() {
    return g_staleUses;
}

bool CheckComUse() {
    const bool ready = Com::Instance().IsReady();
    if (!ready) ++g_staleUses;
    return ready;
}

std::vector<std::string> ComHistory() {
    History& history = Singleton<History>();
    std::lock_guard lock(history.mutex);
    return history.calls;
}

void AddToComHistory(std::string call) {
    constexpr size_t kMost = 10'000;
    History& history = Singleton<History>();
    std::lock_guard lock(history.mutex);
    // A run of days does not fill the memory.
    if (history.calls.size() < kMost) history.calls.push_back(std::move(call));
}

bool Com::IsReady() const {
    std::lock_guard lock(m_mutex);
    return m_entered > 0;
}

HRESULT Com::Enter() {
    std::lock_guard lock(m_mutex);
    ++m_entered;
    return t_entered++ > 0 ? S_FALSE : S_OK;
}

void Com::Leave() {
    std::lock_guard lock(m_mutex);
    if (t_entered == 0) return;
    --t_entered;
    // The last one takes the process's security along.
    if (--m_entered == 0) m_impersonationLevel = 0;
}

HRESULT Com::SetSecurity(DWORD impersonationLevel) {
    std::lock_guard lock(m_mutex);
    if (m_impersonationLevel != 0) return RPC_E_TOO_LATE;
    m_impersonationLevel = impersonationLevel;
    return S_OK;
}

DWORD Com::UseSecurity() {
    std::lock_guard lock(m_mutex);
    if (m_impersonationLevel == 0) m_impersonationLevel = RPC_C_IMP_LEVEL_IDENTIFY;
    return m_impersonationLevel;
}

}  // namespace winhost

using winhost::Com;

HRESULT CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit) {
    WINHOST_GATE_HRESULT("CoInitializeEx");
    if (pvReserved || dwCoInit != COINIT_MULTITHREADED) return E_INVALIDARG;
    return Com::Instance().Enter();
}

void CoUninitialize() {
    WINHOST_GATE_PASS("CoUninitialize");
    winhost::AddToComHistory("CoUninitialize");
    Com::Instance().Leave();
}

HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc,
                             SOLE_AUTHENTICATION_SERVICE* asAuthSvc, void* pReserved1, DWORD dwAuthnLevel,
                             DWORD dwImpLevel, void* pAuthList, DWORD dwCapabilities, void* pReserved3) {
    WINHOST_GATE_HRESULT("CoInitializeSecurity");
    if (!Com::Instance().IsReady()) return CO_E_NOTINITIALIZED;
    const bool plain = !pSecDesc && cAuthSvc == -1 && !asAuthSvc && !pReserved1 && !pAuthList &&
                       dwCapabilities == EOAC_NONE && !pReserved3;
    const bool levels = dwAuthnLevel <= RPC_C_AUTHN_LEVEL_PKT_PRIVACY &&
                        dwImpLevel >= RPC_C_IMP_LEVEL_ANONYMOUS && dwImpLevel <= RPC_C_IMP_LEVEL_DELEGATE;
    if (!plain || !levels) return E_INVALIDARG;
    return Com::Instance().SetSecurity(dwImpLevel);
}

void CoTaskMemFree(LPVOID pv) {
    WINHOST_GATE_PASS("CoTaskMemFree");
    std::free(pv);
}

HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv) {
    WINHOST_GATE_HRESULT("CoCreateInstance");
    if (!ppv) return E_POINTER;
    *ppv = nullptr;
    if (!Com::Instance().IsReady()) return CO_E_NOTINITIALIZED;
    IUnknown* object = nullptr;
    if (dwClsContext & CLSCTX_INPROC_SERVER) object = winhost::NewWmiObject(rclsid);
    if (!object) return REGDB_E_CLASSNOTREG;
    const HRESULT result = pUnkOuter ? CLASS_E_NOAGGREGATION : object->QueryInterface(riid, ppv);
    object->Release();
    return result;
}

HRESULT CoSetProxyBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                          DWORD dwAuthnLevel, DWORD dwImpLevel, RPC_AUTH_IDENTITY_HANDLE pAuthInfo,
                          DWORD dwCapabilities) {
    WINHOST_GATE_HRESULT("CoSetProxyBlanket");
    if (!pProxy) return E_INVALIDARG;
    auto* proxy = dynamic_cast<winhost::Proxy*>(pProxy);
    if (!proxy) return E_NOINTERFACE;
    const bool known = dwAuthnSvc == RPC_C_AUTHN_WINNT && dwAuthzSvc == RPC_C_AUTHZ_NONE &&
                       !pServerPrincName && !pAuthInfo && dwCapabilities == EOAC_NONE;
    if (!known || dwAuthnLevel > RPC_C_AUTHN_LEVEL_PKT_PRIVACY || dwImpLevel < RPC_C_IMP_LEVEL_ANONYMOUS ||
        dwImpLevel > RPC_C_IMP_LEVEL_DELEGATE) {
        return E_INVALIDARG;
    }
    proxy->SetImpersonationLevel(dwImpLevel);
    return S_OK;
}
