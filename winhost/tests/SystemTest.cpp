// The system's version, the machine, its names and its texts.
#include <winsock2.h>

#include <tuple>

#include "winhost/tests/WinsockFixture.h"

namespace {

using GetVersion = LONG(WINAPI*)(PRTL_OSVERSIONINFOW);

using SystemTest = PcFixture;

GetVersion FindVersionCall() {
    const FARPROC found = GetProcAddress(GetModuleHandleA("ntdll.dll"), "RtlGetVersion");
    EXPECT_NE(nullptr, found);
    return reinterpret_cast<GetVersion>(reinterpret_cast<void (*)()>(found));
}

TEST_F(SystemTest, TheVersionIsThePcs) {
    StartPc([](auto& pc) { pc.osVersion = "10.0.22631"; });
    OSVERSIONINFOW version;
    std::memset(&version, 0xFF, sizeof version);
    version.dwOSVersionInfoSize = sizeof version;
    ASSERT_EQ(0, FindVersionCall()(&version));
    EXPECT_EQ(10u, version.dwMajorVersion);
    EXPECT_EQ(0u, version.dwMinorVersion);
    EXPECT_EQ(22631u, version.dwBuildNumber);
    EXPECT_EQ(DWORD{VER_PLATFORM_WIN32_NT}, version.dwPlatformId);
    EXPECT_EQ(L'\0', version.szCSDVersion[0]);
}

TEST_F(SystemTest, TheVersionCallCanFail) {
    Fail("RtlGetVersion", 0xC0000001);
    OSVERSIONINFOW version{};
    EXPECT_EQ(static_cast<LONG>(0xC0000001), FindVersionCall()(&version));
}

TEST_F(SystemTest, AProgramWithoutAManifestSeesWindows8AtMost) {
    for (const auto& [system, minor, build] : {std::tuple("10.0.22631", 2u, 9200u),
                                               {"6.3.9600", 2u, 9200u},
                                               {"6.2.9200", 2u, 9200u},
                                               {"6.1.7601", 1u, 7601u}}) {
        StartPc([&, name = system](auto& pc) { pc.osVersion = name; });
        OSVERSIONINFOW version{};
        version.dwOSVersionInfoSize = sizeof version;
        ASSERT_TRUE(GetVersionExW(&version));
        EXPECT_EQ(6u, version.dwMajorVersion);
        EXPECT_EQ(minor, version.dwMinorVersion);
        EXPECT_EQ(build, version.dwBuildNumber);
    }
}

TEST_F(SystemTest, TheVersionNeedsItsSize) {
    OSVERSIONINFOW version{};
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(GetVersionExW(&version)));
    version.dwOSVersionInfoSize = sizeof version;
}

TEST_F(SystemTest, ModulesAndTheirFunctionsGoByTheirNames) {
    EXPECT_EQ(GetModuleHandleA("NTDLL"), GetModuleHandleA("ntdll.dll"));
    EXPECT_NE(nullptr, GetModuleHandleA(nullptr));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOf(GetModuleHandleA("nosuch.dll")));
    EXPECT_EQ(ERROR_PROC_NOT_FOUND,
              ErrorOf(GetProcAddress(GetModuleHandleA("ntdll.dll"), "rtlgetversion") != nullptr))
        << "case matters";
    EXPECT_EQ(nullptr, GetProcAddress(GetModuleHandleA(nullptr), "RtlGetVersion"));
    EXPECT_EQ(ERROR_MOD_NOT_FOUND, ErrorOf(GetProcAddress(nullptr, "RtlGetVersion") != nullptr));
}

TEST_F(SystemTest, TheArchitectureIsThePcs) {
    for (const WORD architecture : {WORD{PROCESSOR_ARCHITECTURE_INTEL}, WORD{PROCESSOR_ARCHITECTURE_ARM64}}) {
        StartPc([&](auto& pc) { pc.processorArchitecture = architecture; });
        SYSTEM_INFO info;
        GetNativeSystemInfo(&info);
        EXPECT_EQ(architecture, info.wProcessorArchitecture);
        EXPECT_GE(info.dwNumberOfProcessors, 1u);
    }
}

TEST_F(SystemTest, TheDomainIsThePcs) {
    char name[12] = "xxx";
    DWORD size = sizeof name;
    ASSERT_TRUE(GetComputerNameExA(ComputerNameDnsDomain, name, &size));
    EXPECT_STREQ("", name) << "there is none";
    EXPECT_EQ(0u, size);
    Change([](auto& pc) { pc.dnsDomain = "lab.example"; });
    size = sizeof name;
    ASSERT_TRUE(GetComputerNameExA(ComputerNameDnsDomain, name, &size));
    EXPECT_STREQ("lab.example", name);
    EXPECT_EQ(11u, size);
    EXPECT_EQ(ERROR_MORE_DATA, ErrorOf(GetComputerNameExA(ComputerNameDnsDomain, name, &size)));
    EXPECT_EQ(12u, size);
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(GetComputerNameExA(ComputerNameNetBIOS, name, &size)));
}

TEST_F(SystemTest, TheHostNameNeedsWinsockAndRoom) {
    char name[11] = "";
    EXPECT_EQ(WSANOTINITIALISED, SocketErrorOf(gethostname(name, sizeof name)));
    WSADATA data;
    ASSERT_EQ(0, WSAStartup(MAKEWORD(2, 2), &data));
    EXPECT_EQ(0, gethostname(name, sizeof name));
    EXPECT_STREQ("WINHOST-PC", name);
    EXPECT_EQ(WSAEFAULT, SocketErrorOf(gethostname(name, 10)));
    WSACleanup();
}

constexpr DWORD kSystemText = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;

TEST_F(SystemTest, AnErrorHasAText) {
    char text[64];
    const DWORD length =
        FormatMessageA(kSystemText, nullptr, ERROR_ACCESS_DENIED, 0, text, sizeof text, nullptr);
    EXPECT_STREQ("Access is denied.\r\n", text);
    EXPECT_EQ(std::strlen(text), length);
    EXPECT_NE(0u,
              FormatMessageA(kSystemText, nullptr, ERROR_INVALID_PARAMETER, 0, text, sizeof text, nullptr));
    EXPECT_STREQ("The parameter is incorrect.\r\n", text);
}

TEST_F(SystemTest, ATextThatCannotBeHadIsRefused) {
    char text[64];
    const auto errorOf = [&](DWORD flags, DWORD message, DWORD language, DWORD room) {
        return ErrorOf(FormatMessageA(flags, nullptr, message, language, text, room, nullptr));
    };
    EXPECT_EQ(ERROR_MR_MID_NOT_FOUND, errorOf(kSystemText, 999999, 0, 64));
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, errorOf(kSystemText, ERROR_ACCESS_DENIED, 0, 5));
    EXPECT_EQ(ERROR_RESOURCE_LANG_NOT_FOUND, errorOf(kSystemText, ERROR_ACCESS_DENIED, 0x407, 64));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, errorOf(FORMAT_MESSAGE_FROM_SYSTEM, ERROR_ACCESS_DENIED, 0, 64));
}

TEST_F(SystemTest, TheLanguageOfTheThreadIsTheOneSetLast) {
    EXPECT_EQ(1033, SetThreadUILanguage(0));
    EXPECT_EQ(1031, SetThreadUILanguage(1031));
    EXPECT_EQ(1031, SetThreadUILanguage(0));
    EXPECT_EQ(1033, SetThreadUILanguage(1033));
}

}  // namespace
