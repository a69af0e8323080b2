#include "winhost/control/Commands.h"

#include <limits>

namespace winhost {
namespace {

Json::Value Help(const Json::Value&);

const std::vector<Command>& AllCommands() {
    static const auto& commands = *new std::vector<Command>([] {
        std::vector<Command> all = ServiceCommands();
        for (const auto& commands : {PcCommands(), HostCommands(), SessionCommands(), JournalCommands()})
            all.insert(all.end(), commands.begin(), commands.end());
        all.push_back({"help", "the commands, each with its arguments", Help});
        return all;
    }());
    return commands;
}

const char* NameOf(Argument::Kind kind) {
    constexpr const char* kNames[] = {"number", "text", "number or name", "json", "flag"};
    return kNames[static_cast<size_t>(kind)];
}

Json::Value Help(const Json::Value&) {
    Json::Value list(Json::objectValue);
    for (const Command& command : AllCommands()) {
        Json::Value& entry = list[command.name];
        entry["help"] = command.help;
        entry["arguments"] = Json::arrayValue;
        for (const Argument& argument : command.arguments) {
            Json::Value json(Json::objectValue);
            json["name"] = argument.name;
            json["kind"] = NameOf(argument.kind);
            json["help"] = argument.help;
            json["required"] = argument.required && argument.kind != Argument::Kind::Flag;
            entry["arguments"].append(json);
        }
    }
    return list;
}

Json::Value Run(const Json::Value& request) {
    const std::string name = TextOf(request, "command");
    bool takesAction = false;
    for (const Command& command : AllCommands()) {
        if (command.name == name) return command.run(request);
        takesAction |= command.name.starts_with(name + " ");
    }
    if (!takesAction) throw CommandError("unknown command \"" + name + "\"; \"help\" lists them");
    const std::string action = TextOf(request, "action");
    for (const Command& command : AllCommands())
        if (command.name == name + " " + action) return command.run(request);
    throw CommandError("unknown action \"" + action + "\"");
}

}  // namespace

Json::Value Answer(const Json::Value& request) {
    Json::Value answer(Json::objectValue);
    try {
        answer["result"] = Run(request);
        answer["ok"] = true;
    } catch (const std::exception& error) {
        answer["ok"] = false;
        answer["error"] = error.what();
    }
    return answer;
}

std::string TextOf(const Json::Value& request, const char* member) {
    const Json::Value& value = request[member];
    if (!value.isString()) throw CommandError(std::string("\"") + member + "\" has to be a text");
    return value.asString();
}

int64_t NumberOf(const Json::Value& request, const char* member, int64_t lowest, int64_t highest) {
    const Json::Value& value = request[member];
    if (!value.isInt64() || value.asInt64() < lowest || value.asInt64() > highest) {
        throw CommandError(std::string("\"") + member + "\" has to be a whole number from " +
                           std::to_string(lowest) + " to " + std::to_string(highest));
    }
    return value.asInt64();
}

uint32_t Unsigned32Of(const Json::Value& request, const char* member, uint32_t lowest) {
    return static_cast<uint32_t>(NumberOf(request, member, lowest, std::numeric_limits<uint32_t>::max()));
}

uint32_t Unsigned32Or(const Json::Value& request, const char* member, uint32_t otherwise, uint32_t lowest) {
    return request.isMember(member) ? Unsigned32Of(request, member, lowest) : otherwise;
}

bool FlagOf(const Json::Value& request, const char* member) {
    const Json::Value& value = request[member];
    if (!value.isNull() && !value.isBool())
        throw CommandError(std::string("\"") + member + "\" has to be true or false");
    return value.isBool() && value.asBool();
}

}  // namespace winhost
