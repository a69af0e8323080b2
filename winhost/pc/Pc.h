// The simulated PC behind the calls: what Linux has no counterpart for, and the settings of the rest.
// Described by a JSON file named in WINHOST_PC (docs/pc-description.md), or built in a test with a few lines.
// A process that was started on a PC is on the same one.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "winhost/pc/DescribedService.h"
#include "winhost/pc/Directory.h"
#include "winhost/pc/Fields.h"
#include "winhost/pc/GraphicsAdapter.h"
#include "winhost/pc/Journal.h"
#include "winhost/pc/Wlan.h"

namespace winhost {

// A further address of an adapter.
struct AdapterAddress {
    std::string address, mask;
    bool dhcp = false;
    uint32_t bits = 0;  // set in MIB_IPADDRROW's wType beside those that follow from the adapter
};
WINHOST_FIELDS(AdapterAddress, address, mask, dhcp, bits)

struct Adapter {
    std::string name;         // "{GUID}"
    std::string description;  // "Intel(R) Ethernet Connection I219-LM"
    uint32_t index = 1;
    uint32_t type = 6;                   // IANA ifType
    std::string mac;                     // "00:11:22:33:44:55"
    std::string address, mask, gateway;  // dotted; empty when there is none
    bool dhcp = true;
    std::string dhcpServer;
    uint64_t speed = 1'000'000'000;  // bits per second
    uint32_t operStatus = 5;
    uint32_t mtu = 1500;
    uint32_t addressBits = 0;  // as AdapterAddress::bits, for the first address
    std::vector<AdapterAddress> moreAddresses;
};
WINHOST_FIELDS(Adapter, name, description, index, type, mac, address, mask, gateway, dhcp, dhcpServer, speed,
               operStatus, mtu, addressBits, moreAddresses)

// The moment in each year at which the local time changes: 02:00 on the last Sunday of March, by the time
// that is in force until then.
struct ZoneTransition {
    uint32_t month = 0;    // 1 to 12; 0: never
    uint32_t week = 5;     // 1 to 4, or 5 for the last
    uint32_t weekday = 0;  // 0 is Sunday
    uint32_t hour = 2;
};
WINHOST_FIELDS(ZoneTransition, month, week, weekday, hour)

// A process that is listed and can be opened, but is none of Linux.
struct DescribedProcess {
    std::string name;  // "winlogon.exe"
    uint32_t pid = 0;
    uint32_t session = 0;
};
WINHOST_FIELDS(DescribedProcess, name, pid, session)

// The package that the process runs from.
struct Package {
    std::string fullName;    // empty: none
    std::string path;        // "C:\\Program Files\\WindowsApps\\Tarvix.ZEL_1.0.0.0_x64__8wekyb3d8bbwe"
    std::string familyName;  // "Tarvix.ZEL_8wekyb3d8bbwe"
};
WINHOST_FIELDS(Package, fullName, path, familyName)

struct Screen {
    uint32_t width = 1920, height = 1080;  // pixels
};
WINHOST_FIELDS(Screen, width, height)

struct PcDescription {
    static constexpr uint32_t kNoSession = 0xFFFFFFFF;
    // Linux gives its processes lower ids.
    static constexpr uint32_t kFirstDescribedPid = 4194308;

    // The Linux folder that plays the drives: C:\x is <root>/C:/x. The process works with this folder as its
    // current one, so that "C:/x" opens the same file through any library.
    std::string root;
    std::map<std::string, std::string> environment;  // {"PROGRAMDATA", "C:\\ProgramData"}
    std::string modulePath;                          // GetModuleFileNameA
    std::vector<std::string> libraryFolders;         // searched by LoadLibraryW behind the executable's own
    Package package;
    std::string userName = "SYSTEM";
    std::string computerName = "WINHOST-PC";
    std::string osVersionLine = "Microsoft Windows [Version 10.0.19045.3803]";  // what "ver" prints
    std::string osVersion = "10.0.19045";                                       // of RtlGetVersion and WMI
    uint32_t osType = 18;                                                       // of WMI
    uint32_t processorArchitecture = 9;  // GetNativeSystemInfo: 0 x86, 9 x64, 12 ARM64
    uint32_t wmiConnectError = 0;        // HRESULT of IWbemLocator::ConnectServer, 0 for none
    uint32_t wmiQueryError = 0;          // HRESULT of every query, 0 for none
    std::string dnsDomain;               // GetComputerNameExA(ComputerNameDnsDomain)
    Directory directory;
    std::string timeZoneName = "W. Europe Standard Time";
    int32_t timeZoneBiasMinutes = 0;  // UTC = local + bias, and the local time follows it
    // Added to the bias between the two transitions, usually -60. Without both there is no summer time.
    int32_t timeZoneDaylightBiasMinutes = 0;
    ZoneTransition timeZoneDaylightStart, timeZoneStandardStart;
    // "HKEY_LOCAL_MACHINE\\SOFTWARE\\..." to value name to text.
    std::map<std::string, std::map<std::string, std::string>> registry;
    // The same with values of type REG_EXPAND_SZ, which are not expanded when they are read.
    std::map<std::string, std::map<std::string, std::string>> registryExpandTexts;
    // The same with values of type REG_DWORD.
    std::map<std::string, std::map<std::string, uint32_t>> registryNumbers;
    // None: this machine's own interfaces, and with them its name servers unless dnsServers names some.
    std::optional<std::vector<Adapter>> adapters;
    std::optional<std::vector<std::string>> dnsServers;
    // InternetGetConnectedState: 0 means not connected. None: LAN (0x12) while an adapter that is up has a
    // gateway.
    std::optional<uint32_t> connectedFlags;
    bool wlanService = true;  // else WlanOpenHandle fails with 1062
    std::vector<WlanInterface> wlanInterfaces;
    std::vector<WlanNetwork> wlanNetworks = {WlanNetwork()};
    // The certificates of the store "ROOT": PEM texts, or files that hold one.
    std::vector<std::string> rootCertificates;
    bool modernStandby = false, sleepS3 = true, hibernation = true;  // GetPwrCapabilities
    bool shuttingDown = false;                                       // a shutdown or reboot has been granted
    // Of the process's token, all disabled at first.
    std::vector<std::string> privileges = {"SeAssignPrimaryTokenPrivilege", "SeIncreaseQuotaPrivilege",
                                           "SeTcbPrivilege", "SeShutdownPrivilege"};
    uint32_t consoleSession = 1;  // kNoSession: no session is at the console
    bool desktopLocked = false;   // the desktop of the console's session
    // WTSQuerySessionInformationA: the level of its answer, and its size in bytes, 0 for the whole one.
    // Another system may give another level, and a caller has to test both.
    uint32_t sessionInfoLevel = 1, sessionInfoBytes = 0;
    Screen screen;  // as the service sees it
    std::vector<GraphicsAdapter> graphicsAdapters = {GraphicsAdapter()};
    // Whether D3D11CreateDevice makes a software device without a library for it.
    bool softwareDirect3d = false;
    uint32_t timerPeriod = 1;  // the lowest that timeBeginPeriod takes, in milliseconds
    std::vector<DescribedService> services;
    std::vector<DescribedProcess> processes = {{"System", 4, 0},
                                               {"services.exe", kFirstDescribedPid, 0},
                                               {"winlogon.exe", kFirstDescribedPid + 4, 1}};
    uint32_t clockRate = 1;              // the PC's seconds in one of the machine's
    uint32_t controlTimeoutMs = 30'000;  // of the machine's time, for a control handler to return
    uint32_t cleanBoot = 0;              // GetSystemMetrics(SM_CLEANBOOT)
    bool startedByScm = true;            // else StartServiceCtrlDispatcherA fails with 1063
    std::map<uint16_t, uint16_t> ports;  // bind(664) takes ports[664] when it is there
    bool openPorts = false;              // `ports` accept connections from other machines
    std::string mailbox;                 // "unix:/path" or "tcp:127.0.0.1:4711"; empty: no such device
    std::string controlSocket;           // path of the Unix socket for winhostctl; empty: none
};
WINHOST_FIELDS(PcDescription, root, environment, modulePath, libraryFolders, package, userName, computerName,
               osVersionLine, osVersion, osType, processorArchitecture, wmiConnectError, wmiQueryError,
               dnsDomain, directory, timeZoneName, timeZoneBiasMinutes, timeZoneDaylightBiasMinutes,
               timeZoneDaylightStart, timeZoneStandardStart, registry, registryExpandTexts, registryNumbers,
               adapters, dnsServers, connectedFlags, wlanService, wlanInterfaces, wlanNetworks,
               rootCertificates, modernStandby, sleepS3, hibernation, shuttingDown, privileges,
               consoleSession, desktopLocked, sessionInfoLevel, sessionInfoBytes, screen, graphicsAdapters,
               softwareDirect3d, timerPeriod, processes, services, clockRate, cleanBoot, startedByScm,
               controlTimeoutMs, ports, openPorts, mailbox, controlSocket)

// Whether a path of Windows begins with a drive.
bool HasDrive(const std::string& path);

class Pc {
  public:
    // The PC of this process. The first use reads WINHOST_PC when it is set; a broken file, or a WINHOST_ROOT
    // where no PC is, ends the process with a clear line on stderr and code 2.
    static Pc& Instance();
    // Called before the first use, which then ends the process in the same way when no PC is in its root, or
    // without a root in the current folder.
    static void OnlyJoin();

    // A fresh PC for a test: this description, empty logs, the gate reset, a running clock. Creates root and
    // its folder "C:" and makes root the current folder.
    void Reset(PcDescription description);

    // A copy of the description as it stands now.
    PcDescription Description() const;
    // A copy of one member of it, or what a function makes of it under the PC's lock.
    template <class Part>
    auto Get(Part part) const {
        std::lock_guard lock(m_mutex);
        return std::invoke(part, m_description);
    }
    // Changes it under the PC's lock, from a test or the control socket.
    void Change(const std::function<void(PcDescription&)>& change);
    // Grows with every change of the description.
    uint64_t Revision() const { return m_revision.load(std::memory_order_acquire); }
    // Grows with every Reset. State that a process keeps for as long as it lives belongs to one start.
    uint64_t Starts() const { return m_starts.load(std::memory_order_acquire); }
    // How often a Change has stopped the WLAN service. A client of the service belongs to one run of it.
    uint64_t WlanServiceStops() const { return m_wlanServiceStops.load(std::memory_order_acquire); }

    // The file that the description was read from; empty when there is none.
    const std::string& DescriptionFile() const { return m_descriptionFile; }

    // <root>/C:/x for C:\x; any other path only gets its separators turned.
    std::string HostPath(const std::string& windowsPath) const;

    // The PC's journal.
    template <class Type>
    void Record(Type record) {
        m_journal.Add(std::move(record));
    }
    template <class Type>
    std::vector<Type> Records() const {
        return m_journal.All<Type>();
    }

  private:
    Pc();
    mutable std::mutex m_mutex;
    std::string m_descriptionFile;
    PcDescription m_description;
    std::atomic<uint64_t> m_revision{1};
    std::atomic<uint64_t> m_starts{1};
    std::atomic<uint64_t> m_wlanServiceStops{0};
    Journal m_journal;
};

}  // namespace winhost
