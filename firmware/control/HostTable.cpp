#include "firmware/control/HostTable.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace mpm::control {

namespace {

constexpr size_t kLabel = 28;  // the column that the rest of the table begins at

// The host chose these texts, and must not get to write to the terminal.
std::string Printable(const Json::Value& value) {
    std::string text = value.asString();
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F') c = '?';
    return text.empty() ? "-" : text;
}

// The record has the twelve digits alone.
std::string MacText(const Json::Value& value) {
    std::string text = Printable(value);
    if (text.size() == 12)
        for (size_t at = 10; at > 0; at -= 2)
            text.insert(at, ":");
    return text;
}

// Of UTF-8 text, in characters.
size_t WidthOf(const std::string& text) {
    return size_t(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string Pad(const std::string& text, size_t width) {
    return text + std::string(width - std::min(width, WidthOf(text)), ' ');
}

std::string Line(const std::string& label, const std::string& text) {
    return Pad(label, kLabel) + text + "\n";
}

std::string SystemText(const Json::Value& os) {
    return Printable(os["OSName"]) + ", version " + Printable(os["Version"]) + ", " +
           Printable(os["OtherTypeDescription"]);
}

std::string TimeZoneText(int seconds) {
    const int minutes = std::abs(seconds) / 60;
    char text[32];
    std::snprintf(text, sizeof text, "UTC%c%02d:%02d", seconds < 0 ? '-' : '+', minutes / 60, minutes % 60);
    return text;
}

std::string NetworkText(int status) {
    return status == 0 ? "not connected" : status == 1 ? "over LAN" : status == 2 ? "over WLAN" : "?";
}

std::string WiFiText(const Json::Value& wifi) {
    static constexpr std::array kKinds = {
        "open", "?", "WPA2 personal", "WPA2 enterprise", "WPA3 personal", "WPA3 enterprise", "enterprise"};
    static constexpr std::array kBands = {"no band", "2.4 GHz", "5 GHz", "6 GHz", "any band"};
    const unsigned kind = wifi["wpaauth"].asUInt(), band = wifi["band"].asUInt();
    return Printable(wifi["ssid"]) + ", " + (kind < kKinds.size() ? kKinds[kind] : "?") + ", channel " +
           wifi["channel"].asString() + " (" + (band < kBands.size() ? kBands[band] : "?") + "), key " +
           Printable(wifi["key_material"]);
}

std::string LinkText(const Json::Value& adapter) {
    static constexpr std::array kStates = {"not operational", "unreachable", "disconnected",
                                           "connecting",      "connected",   "operational"};
    const unsigned technology = adapter["LinkTechnology"].asUInt(), state = adapter["StatusInfo"].asUInt();
    const std::string kind = technology == 2 ? "Ethernet, " : technology == 11 ? "wireless, " : "";
    return kind + (state < kStates.size() ? kStates[state] : "state " + std::to_string(state));
}

using Row = std::array<std::string, 7>;

Row RowOf(const Json::Value& adapter) {
    const unsigned origin = adapter["AddressOrigin"].asUInt();
    return {Printable(adapter["Name"]),
            MacText(adapter["MACAddress"]),
            Printable(adapter["IPv4Address"]),
            Printable(adapter["Subnet"]),
            Printable(adapter["Gateway"]),
            origin == 4   ? "DHCP"
            : origin == 3 ? "static"
                          : "-",
            LinkText(adapter)};
}

std::string AdaptersText(const std::vector<Row>& adapters) {
    std::vector<Row> rows = {{"adapter", "MAC", "address", "mask", "gateway", "origin", "link"}};
    rows.insert(rows.end(), adapters.begin(), adapters.end());
    std::string text;
    for (const Row& row : rows) {
        for (size_t column = 0; column + 1 < row.size(); ++column) {
            size_t width = 0;
            for (const Row& each : rows)
                width = std::max(width, WidthOf(each[column]));
            text += Pad(row[column], width + 2);
        }
        text += row.back() + "\n";
    }
    return text;
}

std::string AdaptersOf(const Json::Value& host) {
    std::vector<Row> rows;
    if (!host.isMember("WriteMultiNwInfo")) {
        if (!host.isMember("WriteNwInfo")) return {};
        return AdaptersText({RowOf(host["WriteNwInfo"])});  // of the one adapter, without its address
    }
    const Json::Value& report = host["WriteMultiNwInfo"];
    for (const Json::Value& adapter : report["Entries"])
        rows.push_back(RowOf(adapter));
    if (rows.empty()) return "no adapters\n";
    const size_t count = report["Count"].asUInt();
    std::string text = AdaptersText(rows);
    if (count > rows.size()) text += "and " + std::to_string(count - rows.size()) + " more\n";
    return text;
}

}  // namespace

std::string HostTableOf(const Json::Value& host) {
    std::string table;
    if (const Json::Value& os = host["WriteOsInfo"]; os.isObject()) {
        table += Line("name", Printable(os["HostName"]));
        table += Line("domain", Printable(os["DomainName"]));
        table += Line("operating system", SystemText(os));
        table += Line("service version", Printable(os["ZELVersion"]));
    }
    if (host.isMember("WriteADInfo"))
        table += Line("time zone", TimeZoneText(host["WriteADInfo"]["TimezoneDiff"].asInt()));
    if (host.isMember("WriteNetworkStatusInfo"))
        table += Line("network", NetworkText(host["WriteNetworkStatusInfo"]["status"].asInt()));
    if (host.isMember("WriteWiFiSyncInfo")) table += Line("Wi-Fi", WiFiText(host["WriteWiFiSyncInfo"]));
    if (host.isMember("certificate")) table += Line("certificate", Printable(host["certificate"]["verdict"]));
    return table + AdaptersOf(host);
}

}  // namespace mpm::control
