// Events in readable form: decoded field by field, as JSON for programs and as one line for people. Passwords
// never stand in either, keys only when the settings show them, and bytes whose meaning is not known never.
#pragma once

#include <json/json.h>

#include <chrono>
#include <string>

#include "firmware/Fields.h"
#include "firmware/Firmware.h"
#include "testbed/Json.h"

namespace mpm {

// How the secrets of a request are to be shown.
Secrets SecretsOf(const Settings& settings, const std::string& request);

// "2026-01-31T12:03:04.123Z"
std::string TimeText(std::chrono::system_clock::time_point time);

// {"time": ..., "kind": "request", "name": "WriteZELStatus", "code": "0x9C41A410", "bytes": 4, "fields":
// {"state": 1}}
Json::Value JsonOf(const Event& event, Secrets secrets = Secrets::Masked);
Json::Value JsonOf(const Request& request, Secrets secrets = Secrets::Masked);
// 12:03:04.123 host > WriteZELStatus 4 bytes state=1
std::string LineOf(const Json::Value& event);
using testbed::Compact;

}  // namespace mpm
