#include "winhost/core/Guid.h"

#include <algorithm>
#include <cctype>

namespace winhost {

std::optional<GUID> ParseGuid(const std::string& text) {
    constexpr std::string_view kForm = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    const auto fits = [](char form, char c) {
        return form == 'x' ? std::isxdigit(static_cast<unsigned char>(c)) != 0 : form == c;
    };
    if (!std::equal(kForm.begin(), kForm.end(), text.begin(), text.end(), fits)) return std::nullopt;
    const auto number = [&](size_t at, size_t digits) {
        return std::stoul(text.substr(at, digits), nullptr, 16);
    };
    GUID guid{};
    guid.Data1 = static_cast<uint32_t>(number(1, 8));
    guid.Data2 = static_cast<unsigned short>(number(10, 4));
    guid.Data3 = static_cast<unsigned short>(number(15, 4));
    constexpr size_t kBytes[] = {20, 22, 25, 27, 29, 31, 33, 35};
    for (size_t i = 0; i < std::size(kBytes); ++i)
        guid.Data4[i] = static_cast<unsigned char>(number(kBytes[i], 2));
    return guid;
}

}  // namespace winhost
