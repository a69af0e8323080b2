#include "base/WideText.h"

#include <algorithm>

namespace {

constexpr char32_t kLastCharacter = 0x10FFFF;
constexpr char32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

// Removes the first character from the text, which is not empty, and returns it.
template <class Unit>
char32_t TakeCharacter(std::basic_string_view<Unit>& text) {
    const auto take = [&text] {
        const auto unit = static_cast<char32_t>(text.front());
        text.remove_prefix(1);
        return unit;
    };
    const char32_t unit = take();
    if (IsHighSurrogate(unit) && !text.empty() && IsLowSurrogate(static_cast<char32_t>(text.front())))
        return 0x10000 + ((unit - 0xD800) << 10) + (take() - 0xDC00);
    const bool isCharacter = unit <= kLastCharacter && !IsHighSurrogate(unit) && !IsLowSurrogate(unit);
    return isCharacter ? unit : kReplacement;
}

std::string Utf8Of(char32_t character) {
    const auto tail = [character](int shift) {
        return static_cast<char>(0x80 | ((character >> shift) & 0x3F));
    };
    if (character < 0x80) return {static_cast<char>(character)};
    if (character < 0x800) return {static_cast<char>(0xC0 | (character >> 6)), tail(0)};
    if (character < 0x10000) return {static_cast<char>(0xE0 | (character >> 12)), tail(6), tail(0)};
    return {static_cast<char>(0xF0 | (character >> 18)), tail(12), tail(6), tail(0)};
}

std::u16string Utf16Of(char32_t character) {
    if (character < 0x10000) return {static_cast<char16_t>(character)};
    character -= 0x10000;
    return {static_cast<char16_t>(0xD800 | (character >> 10)),
            static_cast<char16_t>(0xDC00 | (character & 0x3FF))};
}

template <class Unit>
std::string Convert(std::basic_string_view<Unit> text, size_t maxBytes) {
    std::string result;
    while (!text.empty()) {
        const std::string character = Utf8Of(TakeCharacter(text));
        if (result.size() + character.size() > maxBytes) break;
        result += character;
    }
    return result;
}

}  // namespace

std::string ToUtf8(std::wstring_view text, size_t maxBytes) {
    return Convert(text, maxBytes);
}

std::string ToUtf8(std::u16string_view text, size_t maxBytes) {
    return Convert(text, maxBytes);
}

std::wstring WidenBytes(std::string_view text) {
    std::wstring wide(text.size(), L'\0');
    std::transform(text.begin(), text.end(), wide.begin(), WidenByte);
    return wide;
}

void FillUtf16(std::span<char16_t> field, std::wstring_view text) {
    size_t length = 0;
    while (!text.empty()) {
        const std::u16string character = Utf16Of(TakeCharacter(text));
        if (length + character.size() >= field.size()) break;
        std::copy(character.begin(), character.end(), field.subspan(length).begin());
        length += character.size();
    }
    std::fill(field.subspan(length).begin(), field.end(), u'\0');
}
