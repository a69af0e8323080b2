// Wide text is UTF-16 in Windows and in the wire records; a compiler's wchar_t may as well hold whole code
// points. Both are read here. What is no character, such as half of a surrogate pair, becomes U+FFFD.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

// UTF-8, cut to whole characters of maxBytes at most.
std::string ToUtf8(std::wstring_view text, size_t maxBytes);
std::string ToUtf8(std::u16string_view text, size_t maxBytes);

// Fills a field with UTF-16, cut to whole characters, and with zeros from its NUL to its end.
void FillUtf16(std::span<char16_t> field, std::wstring_view text);
