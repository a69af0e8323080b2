// Texts in record fields, which have a fixed size.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

// Returns the text in a field. It ends with its first NUL or with the field.
template <class Unit, size_t N>
std::basic_string_view<Unit> TextInField(const Unit (&field)[N]) {
    return {field, static_cast<size_t>(std::find(field, field + N, Unit{}) - field)};
}

// Copies the text up to its first NUL, cuts it to leave room for a NUL, and fills the rest of the field with
// zeros.
template <size_t N>
void CopyToField(char (&field)[N], std::string_view text) {
    const size_t length = text.substr(0, text.find('\0')).copy(field, N - 1);
    std::fill(field + length, field + N, '\0');
}
