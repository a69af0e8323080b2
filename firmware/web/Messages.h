// What a page sends and what it is answered, as JSON texts.
#pragma once

#include <json/json.h>

#include <string>
#include <string_view>

namespace mpm::web {

struct PageMessage {
    // Throws std::exception with a sentence for what is no object with an "id" (a number) and a "do" (a
    // text).
    static PageMessage Parse(std::string_view text);

    uint64_t id = 0;
    std::string verb;
    Json::Value members;  // all of them
};

std::string AnswerText(uint64_t id, const Json::Value& result);
std::string RefusalText(const Json::Value& id, const std::string& why);

bool IsControlVerb(const std::string& verb);
// The request to the control socket that stands for the message. A page names commands also by name, and may
// give the fields of a payload instead of its bytes. Files of the machine are no matter of a page, so that
// what would write one is refused. Throws std::invalid_argument.
Json::Value ControlRequestOf(const PageMessage& message);

// A member of a message; each throws std::invalid_argument when it is missing or of another type.
uint64_t NumberOf(const Json::Value& members, const char* name, uint64_t most);
bool FlagOf(const Json::Value& members, const char* name);
std::string TextOf(const Json::Value& members, const char* name);

}  // namespace mpm::web
