// Events in readable form: decoded field by field, as JSON for programs and as one line for people. Keys and
// passwords never stand in either, nor do bytes whose meaning is not known.
#pragma once

#include <json/json.h>

#include <string>

#include "firmware/Firmware.h"
#include "testbed/Json.h"

namespace mpm {

// {"time": ..., "kind": "request", "name": "WriteZELStatus", "code": "0x9C41A410", "bytes": 4, "fields":
// {"state": 1}}
Json::Value JsonOf(const Event& event);
Json::Value JsonOf(const Request& request);
// 12:03:04.123 host > WriteZELStatus 4 bytes state=1
std::string LineOf(const Json::Value& event);
using testbed::Compact;

}  // namespace mpm
