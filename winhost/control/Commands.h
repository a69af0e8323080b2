// What a client of the control socket can ask for.
#pragma once

#include <json/value.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace winhost {

// A request that cannot be served, told to its sender.
class CommandError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Command {
    std::string name;
    std::string help;  // its members, and what it does
    Json::Value (*run)(const Json::Value& request);
};

// The answer to one line: {"ok": true, "result": ...} or {"ok": false, "error": "..."}. Never throws for a
// bad line.
Json::Value Answer(const std::string& line);

std::vector<Command> ServiceCommands();
std::vector<Command> PcCommands();
std::vector<Command> HostCommands();
std::vector<Command> SessionCommands();

// A member of the request; each throws CommandError when it is missing or of another type.
std::string TextOf(const Json::Value& request, const char* member);
int64_t NumberOf(const Json::Value& request, const char* member, int64_t lowest, int64_t highest);
bool FlagOf(const Json::Value& request, const char* member);  // false when missing

}  // namespace winhost
