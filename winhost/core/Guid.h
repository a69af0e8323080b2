// GUIDs as texts.
#pragma once

#include <optional>
#include <string>

#include <guiddef.h>

namespace winhost {

// "{70A9067B-708F-443C-84BA-BC391FDBF72B}", in either case; nothing for another text.
std::optional<GUID> ParseGuid(const std::string& text);

}  // namespace winhost
