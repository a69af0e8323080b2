#include "winhost/core/Guid.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <string_view>

namespace winhost {

std::optional<GUID> ParseGuid(const std::string& text) {
    constexpr std::string_view kForm = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    const auto fits = [](char form, char c) {
        return form == 'x' ? std::isxdigit(static_cast<unsigned char>(c)) != 0 : form == c;
    };
    if (!std::equal(kForm.begin(), kForm.end(), text.begin(), text.end(), fits)) return std::nullopt;
    GUID guid{};
    unsigned char* const last = guid.Data4;
    std::sscanf(text.c_str(), "{%8x-%4hx-%4hx-%2hhx%2hhx-%2hhx%2hhx%2hhx%2hhx%2hhx%2hhx}", &guid.Data1,
                &guid.Data2, &guid.Data3, &last[0], &last[1], &last[2], &last[3], &last[4], &last[5],
                &last[6], &last[7]);
    return guid;
}

}  // namespace winhost
