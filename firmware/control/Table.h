// The answer of `show` as a table for people: the host at a glance, then each record field by field, then the
// settings.
#pragma once

#include <json/json.h>

#include <string>

namespace mpm::control {

std::string TableOf(const Json::Value& shown);

}  // namespace mpm::control
