// COM as far as WMI needs it, and what WMI reports of the system.
#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

#include "winhost/tests/PcFixture.h"
#include "winhost/wmi/ComObject.h"

namespace {

struct Releaser {
    void operator()(IUnknown* object) const { object->Release(); }
};
template <class Interface>
using Holder = std::unique_ptr<Interface, Releaser>;

class Text {
  public:
    explicit Text(const wchar_t* text) : m_text(SysAllocString(text)) {}
    ~Text() { SysFreeString(m_text); }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    operator BSTR() const { return m_text; }

  private:
    const BSTR m_text;
};

constexpr wchar_t kSystems[] = L"SELECT * FROM Win32_OperatingSystem";
constexpr LONG kForward = WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY;

class Wmi : public PcFixture {
  protected:
    Wmi() { EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED)); }
    ~Wmi() override {
        CoUninitialize();
        EXPECT_EQ(0u, winhost::LiveComObjects());
        EXPECT_EQ(0u, winhost::LiveStrings());
    }

    static HRESULT SetSecurity(DWORD impersonation = RPC_C_IMP_LEVEL_IMPERSONATE) {
        return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, impersonation,
                                    nullptr, EOAC_NONE, nullptr);
    }

    static HRESULT Create(REFCLSID kind, REFIID id, void** object, IUnknown* outer = nullptr) {
        return CoCreateInstance(kind, outer, CLSCTX_INPROC_SERVER, id, object);
    }
    static Holder<IWbemLocator> NewLocator() {
        void* locator = nullptr;
        EXPECT_EQ(S_OK, Create(CLSID_WbemLocator, IID_IWbemLocator, &locator));
        return Holder<IWbemLocator>(static_cast<IWbemLocator*>(locator));
    }

    static HRESULT SetBlanket(IUnknown* object) {
        return CoSetProxyBlanket(object, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                                 RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    }
    static void EnterAgain() { ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED)); }

    static HRESULT Connect(Holder<IWbemServices>& services, const wchar_t* place = L"ROOT\\CIMV2",
                           const wchar_t* user = nullptr) {
        IWbemServices* connected = nullptr;
        const HRESULT result = NewLocator()->ConnectServer(Text(place), Text(user), nullptr, nullptr, 0,
                                                           nullptr, nullptr, &connected);
        services.reset(connected);
        return result;
    }

    static Holder<IWbemServices> Connected() {
        Holder<IWbemServices> services;
        EXPECT_EQ(S_OK, SetSecurity());
        EXPECT_EQ(S_OK, Connect(services));
        return services;
    }

    static HRESULT Query(IWbemServices& services, const wchar_t* query, Holder<IEnumWbemClassObject>& rows,
                         LONG flags = kForward, const wchar_t* language = L"WQL") {
        IEnumWbemClassObject* enumerator = nullptr;
        const HRESULT result = services.ExecQuery(Text(language), Text(query), flags, nullptr, &enumerator);
        rows.reset(enumerator);
        return result;
    }

    static Holder<IWbemClassObject> System() { return System(*Connected()); }
    static Holder<IWbemClassObject> System(IWbemServices& services) {
        Holder<IEnumWbemClassObject> rows;
        EXPECT_EQ(S_OK, Query(services, kSystems, rows));
        IWbemClassObject* object = nullptr;
        ULONG returned = 0;
        EXPECT_EQ(S_OK, rows->Next(WBEM_INFINITE, 1, &object, &returned));
        EXPECT_EQ(1u, returned);
        return Holder<IWbemClassObject>(object);
    }
};

TEST_F(Wmi, TellsTheTypeAndVersionOfTheSystem) {
    StartPc([](auto& pc) {
        pc.osType = 18;
        pc.osVersion = "10.0.22631";
    });
    const auto system = System();
    VARIANT value;
    ASSERT_EQ(S_OK, system->Get(L"OSType", 0, &value, nullptr, nullptr));
    EXPECT_EQ(VT_I4, value.vt) << "a number of 16 bits comes in 32";
    EXPECT_EQ(18, value.lVal);
    ASSERT_EQ(S_OK, system->Get(L"version", 0, &value, nullptr, nullptr)) << "in any case";
    EXPECT_EQ(VT_BSTR, value.vt);
    EXPECT_EQ(L"10.0.22631", std::wstring(value.bstrVal));
    EXPECT_EQ(S_OK, VariantClear(&value));
    EXPECT_EQ(WBEM_E_NOT_FOUND, system->Get(L"Colour", 0, &value, nullptr, nullptr));
}

TEST_F(Wmi, TheSystemIsOne) {
    Holder<IEnumWbemClassObject> rows;
    ASSERT_EQ(S_OK, Query(*Connected(), L"select  *  from win32_OPERATINGSYSTEM", rows));
    IWbemClassObject* objects[2] = {};
    ULONG returned = 0;
    ASSERT_EQ(WBEM_S_FALSE, rows->Next(WBEM_INFINITE, 2, objects, &returned));
    EXPECT_EQ(1u, returned);
    const Holder<IWbemClassObject> one(objects[0]);
    EXPECT_EQ(WBEM_S_FALSE, rows->Next(WBEM_INFINITE, 1, objects, &returned));
    EXPECT_EQ(0u, returned);
}

TEST_F(Wmi, AConnectionCanFailAtTheStartOrAtAQuery) {
    StartPc([](auto& pc) {
        pc.wmiConnectError = 0x80041015;
        pc.wmiQueryError = 0x80041033;
    });
    ASSERT_EQ(S_OK, SetSecurity());
    Holder<IWbemServices> services;
    EXPECT_EQ(WBEM_E_TRANSPORT_FAILURE, Connect(services));
    EXPECT_EQ(nullptr, services);
    Change([](auto& pc) { pc.wmiConnectError = 0; });
    EXPECT_EQ(S_OK, Connect(services));
    Holder<IEnumWbemClassObject> rows;
    EXPECT_EQ(WBEM_E_SHUTTING_DOWN, Query(*services, kSystems, rows));
    EXPECT_EQ(nullptr, rows);
}

TEST_F(Wmi, APropertyCanBeMadeToFail) {
    const auto system = System();
    Fail("IWbemClassObject::Get", 0x80041001);
    VARIANT value;
    EXPECT_EQ(WBEM_E_FAILED, system->Get(L"OSType", 0, &value, nullptr, nullptr));
    Fail("IWbemClassObject::Get", ERROR_OUTOFMEMORY);
    EXPECT_EQ(E_OUTOFMEMORY, system->Get(L"OSType", 0, &value, nullptr, nullptr))
        << "a plain error becomes an HRESULT";
}

TEST_F(Wmi, RefusesQueriesThatItDoesntUnderstand) {
    const auto services = Connected();
    Holder<IEnumWbemClassObject> rows;
    EXPECT_EQ(WBEM_E_INVALID_QUERY_TYPE, Query(*services, kSystems, rows, kForward, L"SQL"));
    EXPECT_EQ(WBEM_E_INVALID_QUERY, Query(*services, L"SELECT Version FROM Win32_OperatingSystem", rows));
    EXPECT_EQ(WBEM_E_INVALID_QUERY, Query(*services, L"SELECT * FROM", rows));
    EXPECT_EQ(WBEM_E_INVALID_PARAMETER, Query(*services, kSystems, rows, WBEM_FLAG_FORWARD_ONLY));
}

TEST_F(Wmi, AnUnknownClassIsToldWhenItsObjectsAreAskedFor) {
    const auto services = Connected();
    Holder<IEnumWbemClassObject> rows;
    ASSERT_EQ(S_OK, Query(*services, L"SELECT * FROM Win32_Toaster", rows));
    IWbemClassObject* object = nullptr;
    ULONG returned = 7;
    EXPECT_EQ(WBEM_E_INVALID_CLASS, rows->Next(WBEM_INFINITE, 1, &object, &returned));
    EXPECT_EQ(0u, returned);
}

TEST_F(Wmi, ConnectsToItsOwnPlaceAsItsOwnUser) {
    ASSERT_EQ(S_OK, SetSecurity());
    Holder<IWbemServices> services;
    EXPECT_EQ(WBEM_E_INVALID_NAMESPACE, Connect(services, L"ROOT\\DEFAULT"));
    EXPECT_EQ(WBEM_E_INVALID_PARAMETER, Connect(services, nullptr)) << "there is no default";
    EXPECT_EQ(WBEM_E_LOCAL_CREDENTIALS, Connect(services, L"ROOT\\CIMV2", L"someone"));
    EXPECT_EQ(S_OK, Connect(services, L"root\\cimv2"));
}

TEST_F(Wmi, AContextTakesALocale) {
    void* made = nullptr;
    ASSERT_EQ(S_OK, Create(CLSID_WbemContext, IID_IWbemContext, &made));
    const Holder<IWbemContext> context(static_cast<IWbemContext*>(made));
    VARIANT value;
    VariantInit(&value);
    EXPECT_EQ(WBEM_E_INVALID_PARAMETER, context->SetValue(L"__Locale", 0, &value)) << "not a text";
    const Text english(L"MS_409");
    value.vt = VT_BSTR;
    value.bstrVal = english;
    EXPECT_EQ(S_OK, context->SetValue(L"__Locale", 0, &value));
    EXPECT_EQ(WBEM_E_INVALID_PARAMETER, context->SetValue(L"__Other", 0, &value));
}

TEST_F(Wmi, WithoutImpersonationNothingIsTold) {
    Holder<IWbemServices> services;
    ASSERT_EQ(S_OK, Connect(services)) << "which settles security that is not set yet";
    Holder<IEnumWbemClassObject> rows;
    EXPECT_EQ(WBEM_E_ACCESS_DENIED, Query(*services, kSystems, rows));
    EXPECT_EQ(S_OK, SetBlanket(services.get()));
    EXPECT_EQ(S_OK, Query(*services, kSystems, rows));
}

TEST_F(Wmi, OnlyAProxyTakesABlanket) {
    EXPECT_EQ(E_NOINTERFACE, SetBlanket(NewLocator().get()));
    EXPECT_EQ(E_INVALIDARG, SetBlanket(nullptr));
}

TEST_F(Wmi, SecurityIsSetOnceAndInTime) {
    EXPECT_EQ(S_OK, SetSecurity());
    EXPECT_EQ(RPC_E_TOO_LATE, SetSecurity());
    EXPECT_EQ(E_INVALIDARG, SetSecurity(0));
    CoUninitialize();
    EXPECT_EQ(CO_E_NOTINITIALIZED, SetSecurity());
    EnterAgain();
    Holder<IWbemServices> services;
    EXPECT_EQ(S_OK, Connect(services));
    EXPECT_EQ(RPC_E_TOO_LATE, SetSecurity()) << "a connection has been made with what there was";
}

TEST_F(Wmi, AnObjectThatIsUsedAfterComHasGoneIsCountedUnlessItIsReleased) {
    auto services = Connected();
    const auto system = System(*services);
    const auto locator = NewLocator();
    const size_t stale = winhost::StaleComUses(), live = winhost::LiveComObjects();
    CoUninitialize();
    Holder<IEnumWbemClassObject> rows;
    EXPECT_EQ(RPC_E_DISCONNECTED, Query(*services, kSystems, rows));
    EXPECT_EQ(stale + 1, winhost::StaleComUses());
    VARIANT value;
    EXPECT_EQ(RPC_E_DISCONNECTED, system->Get(L"OSType", 0, &value, nullptr, nullptr));
    EXPECT_EQ(stale + 2, winhost::StaleComUses());
    locator->AddRef();
    EXPECT_EQ(stale + 3, winhost::StaleComUses());
    locator->Release();
    services.reset();
    EXPECT_EQ(live - 1, winhost::LiveComObjects());
    EXPECT_EQ(stale + 3, winhost::StaleComUses());
    EnterAgain();
    EXPECT_EQ(S_OK, system->Get(L"OSType", 0, &value, nullptr, nullptr));
    EXPECT_EQ(stale + 3, winhost::StaleComUses());
}

TEST_F(Wmi, EveryReferenceCounts) {
    IWbemLocator* locator = NewLocator().release();
    EXPECT_EQ(1u, winhost::LiveComObjects());
    EXPECT_EQ(2u, locator->AddRef());
    void* same = nullptr;
    ASSERT_EQ(S_OK, locator->QueryInterface(IID_IUnknown, &same));
    EXPECT_EQ(locator, same);
    EXPECT_EQ(E_NOINTERFACE, locator->QueryInterface(IID_IWbemServices, &same));
    EXPECT_EQ(nullptr, same);
    EXPECT_EQ(2u, locator->Release());
    EXPECT_EQ(1u, locator->Release());
    EXPECT_EQ(1u, winhost::LiveComObjects());
    EXPECT_EQ(0u, locator->Release());
    EXPECT_EQ(0u, winhost::LiveComObjects());
}

TEST_F(Wmi, ObjectsAreMadeByTheirClassAlone) {
    void* object = &object;
    EXPECT_EQ(REGDB_E_CLASSNOTREG, Create(IID_IWbemLocator, IID_IWbemLocator, &object));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(E_NOINTERFACE, Create(CLSID_WbemLocator, IID_IWbemContext, &object));
    const auto locator = NewLocator();
    EXPECT_EQ(CLASS_E_NOAGGREGATION, Create(CLSID_WbemLocator, IID_IWbemLocator, &object, locator.get()));
    EXPECT_EQ(E_POINTER, Create(CLSID_WbemLocator, IID_IWbemLocator, nullptr));
}

TEST_F(Wmi, AThreadIsInTheApartmentThatAnotherEntered) {
    std::thread([] {
        NewLocator();
        EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        CoUninitialize();
    }).join();
    EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    CoUninitialize();
    NewLocator();
}

TEST(Com, WithoutAnApartmentNothingIsMade) {
    void* object = nullptr;
    EXPECT_EQ(CO_E_NOTINITIALIZED,
              CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, &object));
    CoUninitialize();
}

TEST(Com, ATextIsACopyUntilItIsFreed) {
    const BSTR text = SysAllocString(L"M\u00fcnchen");
    EXPECT_EQ(L"M\u00fcnchen", std::wstring(text));
    EXPECT_EQ(1u, winhost::LiveStrings());
    SysFreeString(text);
    EXPECT_EQ(0u, winhost::LiveStrings());
    EXPECT_EQ(nullptr, SysAllocString(nullptr));
    SysFreeString(nullptr);
}

TEST(Com, AVariantFreesWhatItOwns) {
    VARIANT value;
    VariantInit(&value);
    EXPECT_EQ(VT_EMPTY, value.vt);
    value.vt = VT_BSTR;
    value.bstrVal = SysAllocString(L"text");
    EXPECT_EQ(S_OK, VariantClear(&value));
    EXPECT_EQ(VT_EMPTY, value.vt);
    EXPECT_EQ(0u, winhost::LiveStrings());
    value.vt = 99;
    EXPECT_EQ(DISP_E_BADVARTYPE, VariantClear(&value));
}

}  // namespace
