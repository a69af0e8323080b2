// Texts in the fields of Windows' structures.
#pragma once

#include <minwindef.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include "testbed/Utf8.h"

namespace winhost {

// Cut to the field, and always ended.
template <size_t N>
void PutWide(WCHAR (&field)[N], const std::string& utf8) {
    const std::wstring wide = testbed::FromUtf8(utf8);
    *std::copy_n(wide.begin(), std::min(wide.size(), N - 1), field) = L'\0';
}

}  // namespace winhost
