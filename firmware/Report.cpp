#include "firmware/Report.h"

#include <cstdio>
#include <ctime>

#include "firmware/Catalogue.h"
#include "firmware/Fields.h"
#include "firmware/Hex.h"

namespace mpm {

namespace {

Json::Value Start(const char* kind, const std::string& name, std::chrono::system_clock::time_point time) {
    Json::Value object(Json::objectValue);
    object["time"] = TimeText(time);
    object["kind"] = kind;
    object["name"] = name;
    return object;
}

// A note may quote a client, and a record holds what the host has put there: neither must get to write to the
// terminal.
std::string Printable(std::string text) {
    for (char& c : text)
        if (c < ' ' || c > '~') c = '?';
    return text;
}

std::string FieldTexts(const Json::Value& fields) {
    std::string text;
    for (const std::string& name : fields.getMemberNames())
        text += " " + name + "=" + Compact(fields[name]);
    return text;
}

}  // namespace

std::string TimeText(std::chrono::system_clock::time_point time) {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = milliseconds / 1000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char date[32], text[40];
    std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text, sizeof text, "%s.%03dZ", date, int(milliseconds % 1000));
    return text;
}

Secrets SecretsOf(const Settings& settings, const std::string& request) {
    return settings.ShowWiFiKey && request == "WriteWiFiSyncInfo" ? Secrets::Shown : Secrets::Masked;
}

Json::Value JsonOf(const Event& event, Secrets secrets) {
    if (event.kind == Event::Kind::Note) {
        Json::Value object = Start("note", event.name, event.time);
        if (!event.text.empty()) object["text"] = event.text;
        return object;
    }
    if (event.kind == Event::Kind::Request)
        return JsonOf(
            Request{event.name, event.code, {event.data.begin(), event.data.end()}, event.time, event.text},
            secrets);
    Json::Value object = Start("message", event.name, event.time);
    object["bytes"] = Json::UInt64(event.data.size());
    if (event.name == "raw") return object;
    object["code"] = event.code;
    if (const FirmwareCommand* command = FindCommand(uint8_t(event.code)))
        object["fields"] = Decode(command->payload.fields, event.data);
    return object;
}

Json::Value JsonOf(const Request& request, Secrets secrets) {
    Json::Value object = Start("request", request.name, request.time);
    object["code"] = CodeText(request.code);
    object["bytes"] = Json::UInt64(request.data.size());
    const MailboxRequest* operation = FindRequest(request.code, request.data.size());
    object["fields"] =
        operation ? Decode(operation->input.fields, request.data, secrets) : Json::Value(Json::objectValue);
    if (secrets == Secrets::Shown) object["hex"] = ToHex(request.data);
    if (!request.fault.empty()) object["fault"] = request.fault;
    return object;
}

std::string LineOf(const Json::Value& event) {
    const std::string kind = event["kind"].asString();
    std::string line = event["time"].asString().substr(11, 12);
    line += kind == "request" ? " host > " : kind == "message" ? " firmware > " : " -- ";
    line += event["name"].asString();
    if (event.isMember("bytes")) {
        line += " " + event["bytes"].asString() + (event["bytes"].asUInt64() == 1 ? " byte" : " bytes");
        line += Printable(FieldTexts(event["fields"]));
    }
    if (event.isMember("text")) line += ": " + Printable(event["text"].asString());
    if (event.isMember("fault")) line += " FAULT: " + event["fault"].asString();
    return line;
}

}  // namespace mpm
