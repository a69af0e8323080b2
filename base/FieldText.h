// Texts in the fields of a record, which have a size of their own.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

// The text in a field, which ends with its first NUL or with the field.
template <class Unit, size_t N>
std::basic_string_view<Unit> TextInField(const Unit (&field)[N]) {
    return {field, static_cast<size_t>(std::find(field, field + N, Unit{}) - field)};
}

// The text up to its first NUL, cut to leave room for the field's, and zeros behind it.
template <size_t N>
void CopyToField(char (&field)[N], std::string_view text) {
    const size_t length = text.substr(0, text.find('\0')).copy(field, N - 1);
    std::fill(field + length, field + N, '\0');
}
