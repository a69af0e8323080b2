// The syntax of the Authorization header.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace mpm {

// The scheme, and what follows it. Both are empty for an empty header.
std::pair<std::string, std::string> SplitCredentials(const std::string& header);
// name=value and name="value", separated by commas, by their names in lower case. Nothing when the text is
// malformed or has a name twice.
std::optional<std::map<std::string, std::string>> ParametersOf(const std::string& text);
std::optional<std::string> FromBase64(const std::string& text);

}  // namespace mpm
