#include "firmware/web/Messages.h"

#include <strings.h>

#include <stdexcept>

#include "firmware/Catalogue.h"
#include "firmware/Encode.h"
#include "firmware/Hex.h"
#include "testbed/Json.h"

namespace mpm::web {

namespace {

uint8_t CommandOf(const Json::Value& command) {
    if (command.isUInt() && command.asUInt() <= UINT8_MAX) return uint8_t(command.asUInt());
    if (command.isString())
        if (const auto number = ParseCommand(command.asString())) return *number;
    throw std::invalid_argument("\"command\" has to be a command's name or its number");
}

Json::Value SendRequest(const Json::Value& members) {
    Json::Value request;
    const bool raw = members.isMember("raw") && FlagOf(members, "raw");
    request["raw"] = raw;
    if (!raw) request["command"] = CommandOf(members["command"]);
    if (members.isMember("trailer")) request["trailer"] = Json::UInt64(NumberOf(members, "trailer", 255));
    if (members.isMember("payload")) request["payload"] = TextOf(members, "payload");
    if (!members.isMember("fields")) return request;
    if (raw || members.isMember("payload"))
        throw std::invalid_argument("\"fields\" are there instead of \"payload\", and not in a raw message");
    const FirmwareCommand* command = FindCommand(uint8_t(request["command"].asUInt()));
    if (!command) throw std::invalid_argument("a command that is not known has no fields");
    request["payload"] = ToHex(Encode(command->payload, members["fields"]));
    return request;
}

Json::Value SetRequest(const Json::Value& members) {
    const Json::Value& values = members["values"];
    if (!values.isObject()) throw std::invalid_argument("\"values\" has to be an object");
    for (const std::string& key : values.getMemberNames())
        if (strcasecmp(key.c_str(), "Screen.Ivf") == 0)
            throw std::invalid_argument("Screen.Ivf names a file, which a page cannot choose");
    Json::Value request;
    request["values"] = values;
    return request;
}

Json::Value FaultRequest(const Json::Value& members) {
    if (!members["words"].isArray()) throw std::invalid_argument("\"words\" has to be an array of texts");
    Json::Value request;
    request["words"] = members["words"];
    return request;
}

Json::Value EnrolRequest(const Json::Value& members) {
    Json::Value request;
    for (const char* name : {"host", "authority", "template", "subject"})
        request[name] = TextOf(members, name);
    return request;
}

Json::Value ScreenRequest(const Json::Value& members) {
    if (members.isMember("picture"))
        throw std::invalid_argument("a page cannot have a picture saved as a file");
    Json::Value request;
    request["reset"] = members.isMember("reset") && FlagOf(members, "reset");
    return request;
}

Json::Value EmptyRequest(const Json::Value&) {
    return Json::objectValue;
}

using MakeRequest = Json::Value (*)(const Json::Value& members);

MakeRequest FindVerb(const std::string& verb) {
    struct Row {
        const char* verb;
        MakeRequest make;
    };
    constexpr Row kRows[] = {{"send", SendRequest},     {"set", SetRequest},       {"fault", FaultRequest},
                             {"enrol", EnrolRequest},   {"screen", ScreenRequest}, {"show", EmptyRequest},
                             {"requests", EmptyRequest}};
    for (const Row& row : kRows)
        if (verb == row.verb) return row.make;
    return nullptr;
}

}  // namespace

PageMessage PageMessage::Parse(std::string_view text) {
    PageMessage message;
    message.members = testbed::ParseObject(text);
    message.id = NumberOf(message.members, "id", UINT64_MAX);
    message.verb = TextOf(message.members, "do");
    return message;
}

std::string AnswerText(uint64_t id, const Json::Value& result) {
    Json::Value answer;
    answer["id"] = Json::UInt64(id);
    answer["ok"] = true;
    answer["result"] = result;
    return testbed::Compact(answer);
}

std::string RefusalText(const Json::Value& id, const std::string& why) {
    Json::Value answer;
    answer["id"] = id;
    answer["ok"] = false;
    answer["error"] = why;
    return testbed::Compact(answer);
}

bool IsControlVerb(const std::string& verb) {
    return FindVerb(verb) != nullptr;
}

Json::Value ControlRequestOf(const PageMessage& message) {
    const MakeRequest make = FindVerb(message.verb);
    if (!make) throw std::invalid_argument("the verb is not known");
    Json::Value request = make(message.members);
    request["verb"] = message.verb;
    return request;
}

uint64_t NumberOf(const Json::Value& members, const char* name, uint64_t most) {
    const Json::Value& value = members[name];
    if (!value.isUInt64() || value.asUInt64() > most)
        throw std::invalid_argument(std::string("\"") + name + "\" has to be a whole number from 0 to " +
                                    std::to_string(most));
    return value.asUInt64();
}

bool FlagOf(const Json::Value& members, const char* name) {
    const Json::Value& value = members[name];
    if (!value.isBool()) throw std::invalid_argument(std::string("\"") + name + "\" has to be true or false");
    return value.asBool();
}

std::string TextOf(const Json::Value& members, const char* name) {
    const Json::Value& value = members[name];
    if (!value.isString()) throw std::invalid_argument(std::string("\"") + name + "\" has to be a text");
    return value.asString();
}

}  // namespace mpm::web
