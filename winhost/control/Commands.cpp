#include "winhost/control/Commands.h"

#include <json/reader.h>

#include <memory>

namespace winhost {
namespace {

Json::Value Help(const Json::Value&);

const std::vector<Command>& AllCommands() {
    static const auto& commands = *new std::vector<Command>([] {
        std::vector<Command> all = ServiceCommands();
        for (const auto& commands : {PcCommands(), HostCommands(), SessionCommands()})
            all.insert(all.end(), commands.begin(), commands.end());
        all.push_back({"help", "this list", Help});
        return all;
    }());
    return commands;
}

Json::Value Help(const Json::Value&) {
    Json::Value list(Json::objectValue);
    for (const Command& command : AllCommands())
        list[command.name] = command.help;
    return list;
}

Json::Value Parse(const std::string& line) {
    Json::CharReaderBuilder strict;
    Json::CharReaderBuilder::strictMode(&strict.settings_);
    const std::unique_ptr<Json::CharReader> reader(strict.newCharReader());
    Json::Value request;
    std::string errors;
    if (!reader->parse(line.data(), line.data() + line.size(), &request, &errors)) {
        throw CommandError("not a line of JSON: " + errors);
    }
    if (!request.isObject()) throw CommandError("a request is an object");
    return request;
}

Json::Value Run(const Json::Value& request) {
    const std::string name = TextOf(request, "command");
    for (const Command& command : AllCommands())
        if (command.name == name) return command.run(request);
    throw CommandError("unknown command \"" + name + "\"; \"help\" lists them");
}

}  // namespace

Json::Value Answer(const std::string& line) {
    Json::Value answer(Json::objectValue);
    try {
        answer["result"] = Run(Parse(line));
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

bool FlagOf(const Json::Value& request, const char* member) {
    const Json::Value& value = request[member];
    if (!value.isNull() && !value.isBool())
        throw CommandError(std::string("\"") + member + "\" has to be true or false");
    return value.isBool() && value.asBool();
}

}  // namespace winhost
