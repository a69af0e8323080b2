#include "bench/ServiceLog.h"

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
