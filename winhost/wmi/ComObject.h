// What the COM objects of the PC have in common: counted references, and the gate for calls that return an
// HRESULT.
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include <combaseapi.h>

#include "winhost/core/Gate.h"
#include "winhost/core/Singleton.h"

namespace winhost {

// Objects with references, and texts that are not freed. A test looks at them for a leak.
size_t LiveComObjects();
size_t LiveStrings();
// Calls on objects while no apartment was open, which on Windows may reach a library that has been unloaded.
// Releasing is not counted.
size_t StaleComUses();

// The calls of this process whose arguments or order nothing else shows, oldest first: "CoUninitialize",
// "release IWbemServices" when the last reference goes, and the like.
std::vector<std::string> ComHistory();
void AddToComHistory(std::string call);

// The HRESULT for an error of the gate, which may be one itself.
inline HRESULT AsFailure(uint32_t error) {
    return error >> 31 ? static_cast<HRESULT>(error) : HRESULT_FROM_WIN32(error);
}

// False while no thread is in an apartment; counts the use of an object as a stale one.
bool CheckComUse();

class ComObjectCount {
  public:
    static std::atomic<size_t>& Value();

  protected:
    ComObjectCount() { ++Value(); }
    ~ComObjectCount() { --Value(); }
    ComObjectCount(const ComObjectCount&) = delete;
    ComObjectCount& operator=(const ComObjectCount&) = delete;
};

// An object with one interface beside IUnknown. Made with one reference, which is the maker's.
// One that is none of an apartment, such as an adapter of DXGI, works without CoInitializeEx.
template <class Interface, const IID& kInterfaceId, bool kNeedsApartment = true>
class ComObject : public Interface, private ComObjectCount {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override {
        if (kNeedsApartment) CheckComUse();
        if (!ppvObject) return E_POINTER;
        const bool known = riid == kInterfaceId || riid == IID_IUnknown;
        *ppvObject = known ? static_cast<Interface*>(this) : nullptr;
        if (known) AddRef();
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override {
        if (kNeedsApartment) CheckComUse();
        return ++m_references;
    }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }

  protected:
    virtual ~ComObject() = default;

  private:
    std::atomic<ULONG> m_references{1};
};

// Of an object of another process: its calls are made with the rights that the blanket gives. A class beside
// the interface, so that CoSetProxyBlanket finds it.
class Proxy {
  public:
    explicit Proxy(DWORD impersonationLevel) : m_impersonationLevel(impersonationLevel) {}
    virtual ~Proxy() = default;

    void SetImpersonationLevel(DWORD level) { m_impersonationLevel = level; }
    DWORD ImpersonationLevel() const { return m_impersonationLevel; }

  private:
    std::atomic<DWORD> m_impersonationLevel;
};

// The process's COM.
class Com {
  public:
    static Com& Instance() { return Singleton<Com>(); }

    // True while some thread of the process is in the apartment. All threads may then use COM objects.
    bool IsReady() const;
    // To be called when an object of another process is first met: from now on it's too late for
    // CoInitializeSecurity. The impersonation level that proxies begin with.
    DWORD UseSecurity();

    HRESULT Enter();
    void Leave();
    HRESULT SetSecurity(DWORD impersonationLevel);

  private:
    mutable std::mutex m_mutex;
    unsigned m_entered = 0;          // by all threads
    DWORD m_impersonationLevel = 0;  // 0 until security is settled
};

}  // namespace winhost

#define WINHOST_GATE_HRESULT(name)                                                                        \
    WINHOST_CALL(name);                                                                                   \
    do {                                                                                                  \
        static ::winhost::GateSite site(name);                                                            \
        if (uint32_t error = site.Enter(__builtin_return_address(0))) return ::winhost::AsFailure(error); \
    } while (false)

// The beginning of a method of an object that needs COM.
#define WINHOST_GATE_METHOD(name)                                 \
    WINHOST_GATE_HRESULT(name);                                   \
    do {                                                          \
        if (!::winhost::CheckComUse()) return RPC_E_DISCONNECTED; \
    } while (false)
