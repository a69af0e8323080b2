// Joins the mailbox driver to a simulated firmware on TCP: mpmgate.exe 127.0.0.1:PORT, ended by mpmgate.exe
// --stop.
#include <winsock2.h>
#include <windows.h>

#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "driver/gate/Say.h"
#include "driver/gate/Session.h"
#include "base/Handles.h"

namespace {

constexpr char kStopEvent[] = "Global\\mpmgate-stop";
constexpr DWORD kRetryMilliseconds = 50;

HANDLE g_stop;

BOOL WINAPI StopOnControl(DWORD) {
    SetEvent(g_stop);
    return TRUE;
}

std::optional<sockaddr_in> ParseAddress(std::string_view text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) return {};
    const std::string_view port = text.substr(colon + 1);
    uint16_t number = 0;
    const auto [end, problem] = std::from_chars(port.data(), port.data() + port.size(), number);
    if (problem != std::errc() || end != port.data() + port.size() || number == 0) return {};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(number);
    address.sin_addr.s_addr = inet_addr(std::string(text.substr(0, colon)).c_str());
    if (address.sin_addr.s_addr == INADDR_NONE) return {};
    return address;
}

int Stop() {
    UniqueHandle stop(OpenEventA(EVENT_MODIFY_STATE, FALSE, kStopEvent));
    if (!stop) {
        std::fputs("mpmgate: no gate runs\n", stderr);
        return 1;
    }
    return SetEvent(stop.Get()) ? 0 : 1;
}

void Serve(const sockaddr_in& firmware, HANDLE stop) {
    std::string missing;
    do {
        Session session(stop);
        const std::string problem = session.Attach(firmware);
        if (problem.empty()) {
            Say("the mailbox is present");
            session.Run();
            Say("the mailbox is absent");
        } else if (problem != missing) {
            Say("waiting: %s", problem.c_str());
        }
        missing = problem;
    } while (WaitForSingleObject(stop, kRetryMilliseconds) == WAIT_TIMEOUT);
}

}  // namespace

void Say(const char* format, ...) {
    char line[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    SYSTEMTIME now;
    GetLocalTime(&now);
    std::printf("%02u:%02u:%02u.%03u %s\n", now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, line);
    std::fflush(stdout);
}

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--stop") == 0) return Stop();
    const auto firmware = argc == 2 ? ParseAddress(argv[1]) : std::nullopt;
    if (!firmware) {
        std::fputs("usage: mpmgate.exe ADDRESS:PORT | mpmgate.exe --stop\n", stderr);
        return 2;
    }
    UniqueHandle stop(CreateEventA(nullptr, TRUE, FALSE, kStopEvent));
    if (!stop || GetLastError() == ERROR_ALREADY_EXISTS) {
        std::fputs("mpmgate: another gate runs\n", stderr);
        return 1;
    }
    g_stop = stop.Get();
    SetConsoleCtrlHandler(StopOnControl, TRUE);
    WSADATA data;
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) return 1;
    Serve(*firmware, stop.Get());
    WSACleanup();
    Say("stopped");
    return 0;
}
