#pragma once

#include <json/value.h>

#include <string>

namespace winhostctl {

// One request to the control socket at `path`, and its answer. Throws std::runtime_error when there is none.
Json::Value Exchange(const std::string& path, const Json::Value& request);

}  // namespace winhostctl
