// The host at a glance: its operating system, time zone and adapters.
#pragma once

#include <json/json.h>

#include <string>

namespace mpm::control {

// `host` as Firmware::Host tells it. What the host has not told of yet is left out.
std::string HostTableOf(const Json::Value& host);

}  // namespace mpm::control
