#include "firmware/web/LogLine.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "firmware/Report.h"

namespace mpm::web {

namespace {

constexpr std::string_view kLevels[] = {"ERROR", "WARN", "INFO"};
constexpr std::string_view kSuffix = " $$<";

// "Fri  Nov 13 17:23:26.512 2026 W. Europe Standard Time"
std::optional<std::chrono::milliseconds> StampOf(const std::string& text) {
    constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
    std::array<char, 4> month{};
    unsigned day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
    int year = 0;
    if (std::sscanf(text.c_str(), "%*3s %3s %2u %2u:%2u:%2u.%3u %4d", month.data(), &day, &hour, &minute,
                    &second, &millisecond, &year) != 7)
        return std::nullopt;
    const size_t found = kMonths.find(month.data());
    if (found == std::string_view::npos || found % 3 != 0) return std::nullopt;
    const std::chrono::year_month_day date{
        std::chrono::year(year), std::chrono::month(unsigned(found / 3 + 1)), std::chrono::day(day)};
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(hour) +
           std::chrono::minutes(minute) + std::chrono::seconds(second) +
           std::chrono::milliseconds(millisecond);
}

// Takes what is ahead of the mark off the text, and the mark.
std::string TakeUntil(std::string_view& text, std::string_view mark) {
    const size_t at = text.find(mark);
    const std::string taken(text.substr(0, at));
    text.remove_prefix(at == std::string_view::npos ? text.size() : at + mark.size());
    return taken;
}

}  // namespace

LogLine LogLine::Parse(std::string_view line) {
    LogLine parsed;
    // "[1234]-[ 12 M ] INFO:  the message $$<ZELService> <Fri  Nov 13 ...> <thread = 9 (0x9)>"
    std::string_view rest = line;
    if (rest.starts_with('[')) TakeUntil(rest, " M ] ");
    for (const std::string_view level : kLevels)
        if (rest.starts_with(level) && rest.substr(level.size()).starts_with(':')) parsed.level = level;
    if (parsed.level.empty()) {
        parsed.text = line;
        return parsed;
    }
    rest.remove_prefix(parsed.level.size() + 1);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    // A message may contain the mark of the suffix too.
    const size_t suffix = rest.rfind(kSuffix);
    parsed.text = rest.substr(0, suffix);
    if (suffix == std::string_view::npos) return parsed;
    rest.remove_prefix(suffix + kSuffix.size());
    parsed.tag = TakeUntil(rest, "> <");
    parsed.stamp = StampOf(TakeUntil(rest, "> <"));
    return parsed;
}

std::string LogLine::ToJson(uint64_t serial) const {
    Json::Value json;
    json["serial"] = Json::UInt64(serial);
    json["time"] = time ? Json::Value(TimeText(*time)) : Json::Value();
    json["level"] = level;
    json["text"] = text;
    if (!tag.empty()) json["tag"] = tag;
    return Compact(json);
}

}  // namespace mpm::web
