// The PC's description as JSON: the file named by WINHOST_PC, and the changes that come over the control
// socket.
#pragma once

#include <json/value.h>

#include <stdexcept>
#include <string>

#include "winhost/pc/Pc.h"

namespace winhost {

// What is wrong with a description, in one line that begins with the place: "adapters[1].mac: ...". Control
// characters, which a key or a value may hold, show as "?".
class DescriptionError : public std::runtime_error {
  public:
    DescriptionError(const std::string& place, const std::string& what);
};

// A key that is left out keeps its default; an unknown key, a wrong type or a value out of range throws
// DescriptionError.
PcDescription DescriptionFromJson(const Json::Value& json);
Json::Value DescriptionToJson(const PcDescription& description);

// The same from a file, whose name begins the error's line.
PcDescription ReadDescriptionFile(const std::string& path);

// Throws DescriptionError unless each value is one that such a PC can have.
void CheckDescription(const PcDescription& description);

}  // namespace winhost
