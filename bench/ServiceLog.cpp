#include "bench/ServiceLog.h"

#include <winsock2.h>
#include <windows.h>
#include <psapi.h>

#include <cstring>

#include "base/Log.h"
#include "base/ZELLogger.h"
#include "winhost/pc/Pc.h"

bool OpenServiceLog(const std::string& folder) {
    winhost::PcDescription pc;
    pc.root = folder;
    winhost::Pc::Instance().Reset(pc);
    return ZELLogger::Instance()->OpenLog("zel", "C:\\zel.log", "C:", 0xA00000, 0);
}

void WriteServiceLogLine(int number) {
    LogInfo("%s: received command from driver %d, bytes read %d", "ProcessRead", 8, number);
}

size_t PrivateMegabytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    K32GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                            sizeof counters);
    return counters.PrivateUsage >> 20;
}

size_t TimeZoneName(char (&name)[128]) {
    TIME_ZONE_INFORMATION zone{};
    GetTimeZoneInformation(&zone);
    name[0] = '\0';
    WideCharToMultiByte(CP_THREAD_ACP, 0, zone.StandardName, -1, name, sizeof name, nullptr, nullptr);
    return std::strlen(name);
}
