// What a client of the control socket can ask for.
#pragma once

#include <json/value.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace winhost {

// A request that cannot be served; its text goes to the client.
class CommandError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A member of a request. A client that knows no command by itself takes the arguments from "help".
struct Argument {
    enum class Kind { Number, Text, NumberOrName, Json, Flag };
    std::string name;
    Kind kind;
    std::string help;
    bool required = true;
};

struct Command {
    std::string name;  // "status", or with an action "clock advance"
    std::string help;
    Json::Value (*run)(const Json::Value& request);
    std::vector<Argument> arguments = {};
};

// {"ok": true, "result": ...} or {"ok": false, "error": "..."}. Never throws for a bad request.
Json::Value Answer(const Json::Value& request);

std::vector<Command> ServiceCommands();
std::vector<Command> PcCommands();
std::vector<Command> HostCommands();
std::vector<Command> SessionCommands();
std::vector<Command> JournalCommands();

// A member of the request; each throws CommandError when it is missing or of another type.
std::string TextOf(const Json::Value& request, const char* member);
int64_t NumberOf(const Json::Value& request, const char* member, int64_t lowest, int64_t highest);
uint32_t Unsigned32Of(const Json::Value& request, const char* member, uint32_t lowest = 0);
// The same, and `otherwise` when it is missing.
uint32_t Unsigned32Or(const Json::Value& request, const char* member, uint32_t otherwise,
                      uint32_t lowest = 0);
bool FlagOf(const Json::Value& request, const char* member);  // false when missing

}  // namespace winhost
