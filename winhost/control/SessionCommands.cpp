// The PC's sessions and processes: who is at the console, and what runs.
#include "winhost/control/Commands.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/ProcessList.h"

namespace winhost {
namespace {

Json::Value SessionNow() {
    const PcDescription pc = Pc::Instance().Description();
    Json::Value json(Json::objectValue);
    json["console"] =
        pc.consoleSession == PcDescription::kNoSession ? Json::Value("none") : Json::Value(pc.consoleSession);
    json["desktopLocked"] = pc.desktopLocked;
    return json;
}

template <bool locked>
Json::Value SetLocked(const Json::Value&) {
    Pc::Instance().Change([](PcDescription& pc) { pc.desktopLocked = locked; });
    return SessionNow();
}

Json::Value Session(const Json::Value& request) {
    const bool none = request["id"] == "none";
    const uint32_t session =
        none ? PcDescription::kNoSession
             : static_cast<uint32_t>(NumberOf(request, "id", 1, PcDescription::kNoSession - 1));
    Pc::Instance().Change([&](PcDescription& pc) { pc.consoleSession = session; });
    return SessionNow();
}

Json::Value Processes(const Json::Value&) {
    Json::Value list(Json::arrayValue);
    for (const ProcessEntry& entry : ListProcesses()) {
        Json::Value json(Json::objectValue);
        json["name"] = entry.name;
        json["pid"] = entry.id;
        json["session"] = entry.session;
        json["described"] = entry.described;
        list.append(json);
    }
    return list;
}

}  // namespace

std::vector<Command> SessionCommands() {
    return {
        {"lock", "locks the desktop at the console", SetLocked<true>},
        {"unlock", "unlocks it", SetLocked<false>},
        {"session",
         "brings another session to the console; the processes stay",
         Session,
         {{"id", Argument::Kind::NumberOrName, "its number, or none"}}},
        {"processes", "the PC's processes, as a snapshot lists them", Processes},
    };
}

}  // namespace winhost
