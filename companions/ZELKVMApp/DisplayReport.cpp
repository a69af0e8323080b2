#include "companions/ZELKVMApp/DisplayReport.h"

#include <winsock2.h>
#include <windows.h>

#include <cstring>

#include "base/Handles.h"
#include "companions/ZELKVMApp/Files.h"
#include "kvm/AgentPipeRecords.h"

namespace {

constexpr DWORD kPause = 100;  // milliseconds between two attempts
constexpr uint32_t kPrimaryMonitor = 0;

UniqueFileHandle Connect() {
    UniqueFileHandle pipe;
    while (!pipe) {
        pipe.Reset(
            CreateFileA(kAgentPipeName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        if (!pipe) Sleep(kPause);
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    SetNamedPipeHandleState(pipe.Get(), &mode, nullptr, nullptr);
    return pipe;
}

// The size of the user's own screen; the service's may differ.
uint32_t ScreenSize(int metric, uint32_t service) {
    const int own = GetSystemMetrics(metric);
    return own > 0 ? static_cast<uint32_t>(own) : service;
}

std::string BytesOf(const ZEL_ServiceToKVMApp_pipe& record, uint32_t length) {
    std::string bytes(sizeof record, '\0');
    std::memcpy(bytes.data(), &record, sizeof record);
    bytes.resize(length);
    return bytes;
}

}  // namespace

void ReportDisplay(const DisplayReport& report, uint32_t width, uint32_t height, const std::string& log) {
    const UniqueFileHandle pipe = Connect();
    AppendLine(log, "connected to the service");
    if (!report.isSilent) {
        const ZEL_ServiceToKVMApp_pipe record{report.message, ScreenSize(SM_CXSCREEN, width),
                                              ScreenSize(SM_CYSCREEN, height), kPrimaryMonitor};
        const std::string bytes = BytesOf(record, report.length.value_or(sizeof record));
        DWORD size = 0;
        if (WriteFile(pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &size, nullptr))
            AppendLine(log, "sent message " + std::to_string(report.message) + ", " +
                                std::to_string(bytes.size()) + " bytes: " + std::to_string(record.width) +
                                " x " + std::to_string(record.height) + ", source " +
                                std::to_string(record.vidPnSourceId));
    }
    ZEL_KVMAppStart_pipe start{};
    DWORD size = 0;
    while (ReadFile(pipe.Get(), &start, sizeof start, &size, nullptr))
        AppendLine(log, "received message " + std::to_string(start.message));
    AppendLine(log, "the service has disconnected");
}
