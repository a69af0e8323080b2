#include "base/LogLine.h"

#include <winsock2.h>
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace {

constexpr std::string_view kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::string_view kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

size_t PrivateMebibytes() {
    PROCESS_MEMORY_COUNTERS_EX counters{};
    const HANDLE process = GetCurrentProcess();
    K32GetProcessMemoryInfo(process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters);
    CloseHandle(process);  // a pseudo handle: closing it has no effect
    return counters.PrivateUsage >> 20;
}

using ZoneName = decltype(TIME_ZONE_INFORMATION::StandardName);

// "Fri  Nov 13 17:23:26."; English whatever the locale. A thread keeps the text for its lines of the same
// second.
std::string_view TextOfSecond(SYSTEMTIME now) {
    struct Kept {
        SYSTEMTIME second;
        FixedText<32> text;
    };
    thread_local Kept kept{};
    now.wMilliseconds = 0;
    if (std::memcmp(&now, &kept.second, sizeof now) == 0) return kept.text.View();
    kept.second = now;
    kept.text.Clear();
    kept.text.Append(kDays[now.wDayOfWeek % std::size(kDays)]);
    kept.text.Append("  ");
    kept.text.Append(kMonths[(now.wMonth + 11u) % std::size(kMonths)]);
    kept.text.Append(" ");
    kept.text.AppendNumber(now.wDay, 10, 2);
    kept.text.Append(" ");
    kept.text.AppendNumber(now.wHour, 10, 2);
    kept.text.Append(":");
    kept.text.AppendNumber(now.wMinute, 10, 2);
    kept.text.Append(":");
    kept.text.AppendNumber(now.wSecond, 10, 2);
    kept.text.Append(".");
    return kept.text.View();
}

// " 2026 W. Europe Standard Time> <thread = 512 (0x200)>\n"; the standard name also in daylight saving time,
// in the thread's code page. A thread puts the text together only when the year or the name has changed.
std::string_view EndOfLine(WORD year, const ZoneName& zone) {
    struct Kept {
        WORD year;
        ZoneName zone;
        FixedText<256> text;
    };
    thread_local Kept kept{};
    if (year == kept.year && std::wcsncmp(zone, kept.zone, std::size(zone)) == 0) return kept.text.View();
    const DWORD thread = GetCurrentThreadId();
    char name[128]{};
    const bool isConverted =
        WideCharToMultiByte(CP_THREAD_ACP, 0, zone, -1, name, sizeof name - 1, nullptr, nullptr) != 0;
    kept.text.Clear();
    kept.text.Append(" ");
    kept.text.AppendNumber(year);
    kept.text.Append(" ");
    if (isConverted) kept.text.Append(name);
    kept.text.Append("> <thread = ");
    kept.text.AppendNumber(thread);
    kept.text.Append(" (0x");
    kept.text.AppendNumber(thread, 16);
    kept.text.Append(")>\n");
    kept.year = isConverted ? year : 0;  // the next line tries again
    std::copy(std::begin(zone), std::end(zone), kept.zone);
    return kept.text.View();
}

void AppendWithoutLineBreaks(FixedText<1025>& line, std::string_view message, size_t room) {
    while (!message.empty() && room > 0) {
        // Two searches for one character each are several times as fast as one for either.
        const std::string_view piece = message.substr(0, std::min(message.find('\r'), message.find('\n')));
        const size_t count = std::min(piece.size(), room);
        line.Append(piece.substr(0, count));
        room -= count;
        message.remove_prefix(std::min(piece.size() + 1, message.size()));
    }
}

}  // namespace

void AssembleLogLine(FixedText<1025>& line, const char* tag, const char* message, std::string_view level) {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    TIME_ZONE_INFORMATION zone;
    zone.StandardName[0] = L'\0';  // should the call fail
    GetTimeZoneInformation(&zone);

    FixedText<512> suffix;
    suffix.Append(" $$<");
    suffix.Append(tag);
    suffix.Append("> <");
    suffix.Append(TextOfSecond(now));
    suffix.AppendNumber(now.wMilliseconds);  // without leading zeros
    suffix.Append(EndOfLine(now.wYear, zone.StandardName));

    line.Append("[");
    line.AppendNumber(GetCurrentProcessId());
    line.Append("]-[ ");
    line.AppendNumber(PrivateMebibytes());
    line.Append(" M ] ");
    line.Append(level);
    AppendWithoutLineBreaks(line, message, line.Room() - suffix.Size());
    line.Append(suffix.View());
}
