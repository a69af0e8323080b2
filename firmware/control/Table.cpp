#include "firmware/control/Table.h"

#include "firmware/Report.h"
#include "firmware/control/HostTable.h"

namespace mpm::control {

namespace {

constexpr size_t kColumn = 28;

std::string Pad(std::string text) {
    text.resize(std::max(text.size() + 2, kColumn), ' ');
    return text;
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
    return table;
}

}  // namespace mpm::control
