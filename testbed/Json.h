// JSON on one line.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace testbed {

std::string Compact(const Json::Value& json);
// Throws std::runtime_error, with the reason, for what is not exactly one object.
Json::Value ParseObject(std::string_view text);

}  // namespace testbed
