#include "firmware/control/Table.h"

#include "firmware/Report.h"
#include "firmware/control/HostTable.h"

namespace mpm::control {

namespace {

constexpr size_t kColumn = 28;
constexpr size_t kNumber = 14, kName = 40;

std::string Pad(std::string text, size_t column = kColumn) {
    text.resize(std::max(text.size() + 2, column), ' ');
    return text;
}

std::string LevelText(const Json::Value& level) {
    return level["from"].asString() + "  " + level["effect"].asString() + "\n";
}

// "KvmPeer, 8 bytes"
std::string RecordText(const Json::Value& record) {
    const uint64_t least = record["minSize"].asUInt64(), most = record["maxSize"].asUInt64();
    if (most == 0) return "nothing";
    const std::string range = least == most ? "" : std::to_string(least) + " to ";
    return record["record"].asString() + ", " + range + std::to_string(most) +
           (most == 1 ? " byte" : " bytes");
}

void Append(std::string& table, const std::string& indent, const std::string& name,
            const Json::Value& value) {
    if (value.isObject()) {
        table += indent + name + "\n";
        for (const std::string& member : value.getMemberNames())
            Append(table, indent + "  ", member, value[member]);
    } else if (value.isArray()) {
        for (Json::ArrayIndex i = 0; i < value.size(); ++i)
            Append(table, indent, name + " " + std::to_string(i + 1), value[i]);
    } else {
        table += Pad(indent + name) + Compact(value) + "\n";
    }
}

}  // namespace

std::string TableOf(const Json::Value& shown) {
    std::string table = Pad("listens on") + shown["address"].asString() + "\n";
    const Json::Value& host = shown["host"];
    table += Pad("host") + (host["up"].asBool() ? "up" : "not up") +
             (host["listening"].asBool() ? ", listening" : ", not listening") + "\n";
    table += HostTableOf(host) + "\n";
    for (const std::string& name : host.getMemberNames())
        if (host[name].isObject()) Append(table, "", name, host[name]);
    Append(table, "", "settings", shown["settings"]);
    table += "firmware level " + shown["settings"]["uVORKVersion"].asString() + "\n";
    for (const Json::Value& level : shown["levels"])
        table += (level["on"].asBool() ? "  on    " : "  off   ") + LevelText(level);
    return table;
}

std::string ScreenText(const Json::Value& screen) {
    std::string text = Pad("state") + screen["state"].asString() + "\n";
    for (const std::string& name : screen.getMemberNames())
        if (name != "state") Append(text, "", name, screen[name]);
    return text;
}

std::string CatalogueText(const Json::Value& tables) {
    std::string text = "commands of the firmware\n";
    for (const Json::Value& command : tables["commands"])
        text += Pad("  " + command["number"].asString(), kNumber) + Pad(command["name"].asString(), kName) +
                RecordText(command["payload"]) + "\n";
    text += "requests of the host\n";
    for (const Json::Value& request : tables["requests"])
        text += Pad("  " + request["code"].asString(), kNumber) + Pad(request["name"].asString(), kName) +
                RecordText(request["input"]) + " -> " + RecordText(request["output"]) + "\n";
    text += "firmware levels\n";
    for (const Json::Value& level : tables["levels"])
        text += "  from " + LevelText(level);
    return text;
}

}  // namespace mpm::control
