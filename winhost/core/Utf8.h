// The PC's one narrow code page.
#pragma once

#include <string>
#include <string_view>

namespace winhost {

// A byte that belongs to no character becomes U+FFFD.
std::wstring FromUtf8(std::string_view text);
// A surrogate or a number beyond Unicode becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);

}  // namespace winhost
