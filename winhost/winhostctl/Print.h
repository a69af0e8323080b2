#pragma once

#include <json/value.h>

#include <ostream>

namespace winhostctl {

// An answer for people, one fact a line, or as one line of JSON.
void Print(std::ostream& out, const Json::Value& result, bool asJson);

}  // namespace winhostctl
