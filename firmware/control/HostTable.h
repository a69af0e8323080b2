// The host at a glance: its operating system, time zone and adapters.
#pragma once

#include <json/json.h>

#include <string>

namespace mpm::control {

// `host` as Firmware::Host returns it. Records that the host has not sent yet are left out.
std::string HostTableOf(const Json::Value& host);

}  // namespace mpm::control
