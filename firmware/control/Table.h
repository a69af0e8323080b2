// The answer of `show` as a table for people.
#pragma once

#include <json/json.h>

#include <string>

namespace mpm::control {

std::string TableOf(const Json::Value& shown);

}  // namespace mpm::control
