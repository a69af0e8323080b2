// What the firmware receives about the host's operating system.
#include "reporting/OsInformation.h"

#include "base/FieldText.h"
#include "base/WideText.h"
#include "tests/unit/reporting/ReportingFixture.h"
#include "winhost/wmi/ComObject.h"

namespace {

constexpr char kCurrentVersion[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

class OsInformation : public ReportingFixture {
  protected:
    void SetUp() override {
        ReportingFixture::SetUp();
        OpenMailbox();
    }
    static void SetProductName(const std::string& name) {
        Pc().Change([&](auto& pc) { pc.registry[kCurrentVersion]["ProductName"] = name; });
    }
    static void SetVersion(const std::string& version) {
        Pc().Change([&](auto& pc) { pc.osVersion = version; });
    }
    // The record as it reaches the firmware.
    OsInfo Report() {
        firmware.Clear();
        WriteOSInfoToMPM(service->m_WMIInterfaceObj);
        const auto requests = firmware.Requests("WriteOsInfo");
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? OsInfo{} : requests[0].As<OsInfo>();
    }
};

class Wmi : public OsInformation {
  protected:
    HRESULT Ask() {
        info = {};
        return service->m_WMIInterfaceObj.GetOSinformation(&info);
    }
    static std::vector<std::string> HistorySince(size_t before) {
        const std::vector<std::string> history = winhost::ComHistory();
        return {history.begin() + static_cast<std::ptrdiff_t>(before), history.end()};
    }
    OsInfo info{};
};

}  // namespace

TEST_F(OsInformation, EveryFieldReachesTheFirmware) {
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    SetVersion("10.0.22631");
    SetProductName("Windows 10 Pro");
    Pc().Change([](auto& pc) {
        pc.computerName = "LAB-7";
        pc.dnsDomain = "corp.example";
    });
    const OsInfo info = Report();
    EXPECT_EQ(TextInField(info.OSName), u"Microsoft Windows 11 Professional");
    EXPECT_EQ(TextInField(info.OtherTypeDescription), u"64-bit");
    EXPECT_EQ(TextInField(info.Version), u"10.0.22631");
    EXPECT_EQ(TextInField(info.HostName), "LAB-7");
    EXPECT_EQ(TextInField(info.DomainName), "corp.example");
    EXPECT_EQ(info.OSType, 18);
    EXPECT_EQ(info.OSReservedWord, 65535);
    EXPECT_EQ(TextInField(info.ZELVersion), "5.1.0.1481");
    ExpectLogInOrder({"Enter: GetOSinformation", "OS Type: 18", "OS Version: 10.0.22631",
                      "Exit: GetOSinformation", "WriteOSInfoToMPM: DNS domain: corp.example",
                      "OS Product type from Windows Registry: Windows 10 Pro",
                      "OS Name: Microsoft Windows 11 Professional", "OS Other Type description: 64-bit",
                      "OS Version: 10.0.22631", "OS DomainName: corp.example", "OS Host Name: LAB-7",
                      "OS Type: 18", "OS ZEL Version: 5.1.0.1481"});
}

TEST_F(OsInformation, TheRecordIsZeroWhereNothingStands) {
    const OsInfo info = Report();
    for (size_t i = TextInField(info.OSName).size(); i < std::size(info.OSName); ++i)
        EXPECT_EQ(info.OSName[i], 0) << i;
    for (size_t i = TextInField(info.HostName).size(); i < std::size(info.HostName); ++i)
        EXPECT_EQ(info.HostName[i], 0) << i;
    for (size_t i = TextInField(info.ZELVersion).size(); i < std::size(info.ZELVersion); ++i)
        EXPECT_EQ(info.ZELVersion[i], 0) << i;
}

TEST_F(OsInformation, GoesOutWhateverFails) {
    Gate().FailNth("IWbemServices::ExecQuery", 1, ERROR_GEN_FAILURE);
    Gate().FailNth("gethostname", 1, ERROR_GEN_FAILURE);
    Gate().FailNth("GetComputerNameExA", 1, ERROR_GEN_FAILURE);
    ExpectError("RtlGetVersion not found in ntdll.dll");
    Gate().FailNth("GetModuleHandleA", 1, ERROR_MOD_NOT_FOUND);
    Gate().FailNth("RegOpenKeyExA", 1, ERROR_ACCESS_DENIED);
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    const OsInfo info = Report();
    EXPECT_EQ(TextInField(info.OSName), u"Microsoft Unknown Windows Version Unknown Edition");
    EXPECT_EQ(TextInField(info.Version), u"");
    EXPECT_EQ(TextInField(info.HostName), "");
    EXPECT_EQ(TextInField(info.DomainName), "N/A");
    EXPECT_EQ(info.OSType, 0);
    EXPECT_EQ(info.OSReservedWord, 65535);
    EXPECT_EQ(LogCount("DNS domain"), 0u);
}

TEST_F(OsInformation, AHostOutsideOfADomainHasAnEmptyOne) {
    const OsInfo info = Report();
    EXPECT_EQ(TextInField(info.DomainName), "");
    EXPECT_TRUE(HasLine("INFO", "WriteOSInfoToMPM: DNS domain: "));
}

TEST_F(OsInformation, ADomainThatIsTooLongForItsFieldCountsAsUnknown) {
    Pc().Change([](auto& pc) { pc.dnsDomain = std::string(128, 'd'); });
    EXPECT_EQ(TextInField(Report().DomainName), "N/A");
    Pc().Change([](auto& pc) { pc.dnsDomain = std::string(127, 'd'); });
    EXPECT_EQ(TextInField(Report().DomainName), std::string(127, 'd'));
}

TEST_F(OsInformation, ALongHostNameGoesOutWhole) {
    const std::string name(131, 'h');
    Pc().Change([&](auto& pc) { pc.computerName = name; });
    EXPECT_EQ(TextInField(Report().HostName), name);
}

TEST_F(OsInformation, OnlyThirtyTwoBitsAreThirtyTwoBits) {
    for (const auto& [architecture, text] : {std::pair(0u, u"32-bit"), std::pair(9u, u"64-bit"),
                                             std::pair(12u, u"64-bit"), std::pair(0xFFFFu, u"64-bit")}) {
        Pc().Change([number = architecture](auto& pc) { pc.processorArchitecture = number; });
        EXPECT_EQ(TextInField(Report().OtherTypeDescription), text) << architecture;
    }
}

TEST_F(OsInformation, TheVersionGivesTheName) {
    SetProductName("Windows 10 Pro");
    const std::pair<const char*, std::string> names[] = {
        {"10.0.21999", "Windows 10"},
        {"10.0.22000", "Windows 11"},
        {"10.1.19045", "Windows 10"},
        {"6.3.9600", "Windows 8.1"},
        {"6.2.9200", "Windows 8"},
        {"6.1.7601", "Windows 7"},
        {"6.0.6002", "Windows Vista"},
        {"6.4.9800", "Unknown Windows Version"},
        {"5.1.2600", "Unknown Windows Version"},
        {"11.0.30000", "Unknown Windows Version"},
    };
    for (const auto& [version, name] : names) {
        SetVersion(version);
        EXPECT_EQ(GetOsName(), "Microsoft " + name + " Professional") << version;
    }
}

TEST_F(OsInformation, AVersionThatCannotBeReadIsUnknown) {
    SetProductName("Windows 10 Home");
    ExpectErrors({"RtlGetVersion not found in ntdll.dll", "RtlGetVersion failed with status: -1073741823"});
    Gate().FailNth("GetProcAddress", 1, ERROR_PROC_NOT_FOUND);
    EXPECT_EQ(GetOsName(), "Microsoft Unknown Windows Version Home");
    Gate().FailNth("RtlGetVersion", 1, 0xC0000001);
    EXPECT_EQ(GetOsName(), "Microsoft Unknown Windows Version Home");
}

TEST_F(OsInformation, TheFirstWordOfTheProductNameThatFitsGivesTheEdition) {
    const std::pair<const char*, std::string> editions[] = {
        {"Windows 10 Pro", "Professional"},
        {"Windows 7 Professional", "Professional"},
        {"Windows 10 Enterprise", "Enterprise"},
        {"Windows 10 Enterprise for Pro Servers", "Enterprise"},
        {"Windows Server 2022", "Server"},
        {"Windows 10 Home", "Home"},
        {"Windows 10 Education", "Education"},
        {"Windows 10 Pro Education", "Professional"},
        {"Windows 10 home", "Personal"},
        {"Windows 10 S", "Personal"},
        {"", "Unknown Edition"},
    };
    for (const auto& [product, edition] : editions) {
        SetProductName(product);
        EXPECT_EQ(GetOsName(), "Microsoft Windows 10 " + edition) << product;
    }
}

TEST_F(OsInformation, AProductNameMayBeANumberOrMissing) {
    EXPECT_EQ(GetOsName(), "Microsoft Windows 10 Unknown Edition");
    Pc().Change([](auto& pc) { pc.registryNumbers[kCurrentVersion]["ProductName"] = 4711; });
    EXPECT_EQ(GetOsName(), "Microsoft Windows 10 Personal");
    EXPECT_TRUE(HasLine("INFO", "OS Product type from Windows Registry: 4711"));
}

TEST_F(OsInformation, AProductNameMayBeAnExpandableText) {
    Pc().Change([](auto& pc) { pc.registryExpandTexts[kCurrentVersion]["ProductName"] = "Windows 10 Home"; });
    EXPECT_EQ(GetOsName(), "Microsoft Windows 10 Home");
    EXPECT_TRUE(HasLine("INFO", "OS Product type from Windows Registry: Windows 10 Home"));
}

TEST_F(OsInformation, AProductNameThatGoesBetweenTwoReadsIsUnknown) {
    SetProductName("Windows 10 Pro");
    Gate().FailNth("RegQueryValueExA", 2, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(GetOsName(), "Microsoft Windows 10 Unknown Edition");
}

TEST_F(OsInformation, LeavesNoHandleNorReferenceBehind) {
    SetProductName("Windows 10 Pro");
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    EXPECT_EQ(winhost::LiveComObjects(), 2u);  // the locator and the connection
    Report();
    EXPECT_EQ(winhost::LiveComObjects(), 2u);
    EXPECT_EQ(winhost::LiveStrings(), 0u);
    service->m_WMIInterfaceObj.Release();
    EXPECT_EQ(winhost::LiveComObjects(), 0u);
}

TEST_F(Wmi, ConnectsWithEnglishTexts) {
    const size_t before = winhost::ComHistory().size();
    EXPECT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    EXPECT_TRUE(HasLine("INFO", "DoInit -- COM initialization is successful."));
    EXPECT_EQ(HistorySince(before), (std::vector<std::string>{"ConnectServer ROOT\\CIMV2, __Locale MS_409"}));
}

TEST_F(Wmi, AsksInEnglish) {
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    constexpr LANGID kGerman = 1031, kEnglish = 1033;
    SetThreadUILanguage(kGerman);
    const size_t before = winhost::ComHistory().size();
    EXPECT_EQ(Ask(), S_OK);
    EXPECT_EQ(SetThreadUILanguage(0), kEnglish);
    EXPECT_EQ(HistorySince(before),
              (std::vector<std::string>{"ExecQuery WQL, SELECT * FROM Win32_OperatingSystem, 48"}));
}

TEST_F(Wmi, ReleasesTheConnectionAheadOfTheLocator) {
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    const size_t before = winhost::ComHistory().size();
    service->m_WMIInterfaceObj.Release();
    EXPECT_EQ(HistorySince(before),
              (std::vector<std::string>{"release IWbemServices", "release IWbemLocator"}));
}

TEST_F(Wmi, EachStepThatFailsEndsTheConnectionWithItsCode) {
    const std::pair<const char*, std::string> steps[] = {
        {"CoInitializeSecurity",
         "Failed to initialize security in CoInitializeSecurity. Error code = 0x80041001"},
        {"CoCreateInstance", "Failed to create IWbemLocator object. Error code = 0x80041001"},
        {"IWbemLocator::ConnectServer", "Could not connect to WMI. Error code = 0x80041001"},
        {"CoSetProxyBlanket", "Could not set proxy blanket. Error code = 0x80041001"}};
    for (const auto& [call, line] : steps) {
        // A service object of its own, since a process sets its security once.
        service.reset();
        service = std::make_unique<ZELService>("");
        Gate().FailNth(call, 1, 0x80041001);
        EXPECT_EQ(service->m_WMIInterfaceObj.DoInit(), static_cast<HRESULT>(0x80041001)) << call;
        EXPECT_EQ(Messages().back(), line);
        EXPECT_EQ(winhost::LiveComObjects(), 0u) << call;
    }
    EXPECT_EQ(LogCount("COM initialization is successful"), 0u);
}

TEST_F(Wmi, WithoutAContextItConnectsAllTheSame) {
    Gate().FailNth("CoCreateInstance", 2, ERROR_GEN_FAILURE);
    EXPECT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    EXPECT_EQ(Gate().Count("IWbemContext::SetValue"), 0u);
    EXPECT_EQ(Ask(), S_OK);
    EXPECT_EQ(info.OSType, 18);
}

TEST_F(Wmi, ANullBufferIsRefused) {
    EXPECT_EQ(service->m_WMIInterfaceObj.GetOSinformation(nullptr), E_POINTER);
    ExpectLogInOrder({"Enter: GetOSinformation", "GetOSinformation: pDestBuffer is NULL, returning error"});
}

TEST_F(Wmi, AQueryThatFailsIsToldAndGivesNothing) {
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    Pc().Change([](auto& pc) { pc.wmiQueryError = 0x80041003; });
    EXPECT_EQ(Ask(), static_cast<HRESULT>(0x80041003));
    EXPECT_EQ(Messages().back(), "Query for OS information failed. Error code = 0x80041003");
    EXPECT_EQ(info.OSType, 0);
}

TEST_F(Wmi, WithoutAConnectionAQueryFails) {
    EXPECT_EQ(Ask(), CO_E_NOTINITIALIZED);
    EXPECT_EQ(Messages().back(), "Query for OS information failed. Error code = 0x800401f0");
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    service->m_WMIInterfaceObj.Release();
    EXPECT_EQ(Ask(), CO_E_NOTINITIALIZED);
}

TEST_F(Wmi, WhatCannotBeReadStaysZero) {
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    Gate().FailNth("IWbemClassObject::Get", 1, ERROR_GEN_FAILURE);
    EXPECT_EQ(Ask(), S_OK);
    EXPECT_EQ(info.OSType, 0);
    EXPECT_EQ(TextInField(info.Version), u"10.0.19045");
    Gate().FailNth("IWbemClassObject::Get", 2, ERROR_GEN_FAILURE);
    EXPECT_EQ(Ask(), S_OK);
    EXPECT_EQ(info.OSType, 18);
    EXPECT_EQ(TextInField(info.Version), u"");
    // Nor is an answer without an object an error.
    Gate().FailNth("IEnumWbemClassObject::Next", 1, ERROR_GEN_FAILURE);
    EXPECT_EQ(Ask(), S_OK);
    EXPECT_EQ(info.OSType, 0);
    EXPECT_EQ(Messages().back(), "Exit: GetOSinformation");
}

TEST_F(Wmi, AFailedApartmentLeavesAnObjectThatCanBeUsed) {
    Gate().FailNth("CoInitializeEx", 1, 0x80010106);
    OsInfo record{};
    {
        WMIInterface wmi;
        EXPECT_EQ(Messages().back(), "Failed to initialize COM library. Error code = 0x80010106");
        // The service's own object has opened the apartment for the process.
        EXPECT_EQ(wmi.DoInit(), S_OK);
        EXPECT_EQ(wmi.GetOSinformation(&record), S_OK);
    }
    EXPECT_EQ(record.OSType, 18);
    EXPECT_EQ(winhost::LiveComObjects(), 0u);
}

TEST_F(Wmi, LeavesTheApartmentAheadOfItsReferences) {
    size_t before = 0;
    {
        WMIInterface wmi;
        ASSERT_EQ(wmi.DoInit(), S_OK);
        EXPECT_EQ(winhost::LiveComObjects(), 2u);
        before = winhost::ComHistory().size();
    }
    EXPECT_EQ(winhost::LiveComObjects(), 0u);
    EXPECT_EQ(HistorySince(before),
              (std::vector<std::string>{"CoUninitialize", "release IWbemServices", "release IWbemLocator"}));
}

TEST_F(Wmi, AServiceThatStopsReleasesIt) {
    ASSERT_EQ(service->m_WMIInterfaceObj.DoInit(), S_OK);
    service->ServiceCleanup();
    ExpectLogInOrder({"Clean up DASH object", "Cleanup WMI Interfaces", "Cleanup Driver Interfaces"});
    EXPECT_EQ(winhost::LiveComObjects(), 0u);
}
