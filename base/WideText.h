// Wide text is UTF-16 in Windows and in the wire records; the wchar_t of other compilers may hold whole code
// points. These functions accept both. A unit that is no character, such as half of a surrogate pair, becomes
// U+FFFD.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

// Converts to UTF-8 and cuts the result to whole characters of at most maxBytes.
std::string ToUtf8(std::wstring_view text, size_t maxBytes);
std::string ToUtf8(std::u16string_view text, size_t maxBytes);

// Widens a text as the C runtime does it in the C locale: each byte becomes the character of its number.
constexpr wchar_t WidenByte(char byte) {
    return static_cast<wchar_t>(static_cast<unsigned char>(byte));
}
std::wstring WidenBytes(std::string_view text);

// Fills a field with UTF-16, cut to whole characters, and with zeros from its NUL to its end.
void FillUtf16(std::span<char16_t> field, std::wstring_view text);
