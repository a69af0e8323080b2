// Numbers as texts.
#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

namespace testbed {

// The number that the whole text is; nothing for any other text.
template <class Number>
std::optional<Number> ParseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

}  // namespace testbed
