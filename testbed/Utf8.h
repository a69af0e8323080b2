// UTF-8, from and to wide characters.
#pragma once

#include <string>
#include <string_view>

namespace testbed {

// A byte that belongs to no character becomes U+FFFD.
std::wstring FromUtf8(std::string_view text);
// A surrogate or a number beyond Unicode becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);
// A pair of surrogates is one character; a single one becomes U+FFFD.
std::string ToUtf8(std::u16string_view text);

}  // namespace testbed
