#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "winhost/tests/Errors.h"

namespace {

TEST(WideCharToMultiByte, WritesUtf8WithTheNulOnlyWhenTheLengthIsUnknown) {
    const wchar_t lone[] = {0xD800, 0};
    const struct {
        const wchar_t* text;
        int length;
        std::string expected;
    } kTexts[] = {
        {L"abc", -1, {"abc\0", 4}},
        {L"abc", 2, "ab"},
        {L"M\u00fcnchen", -1, {"M\xC3\xBCnchen\0", 9}},
        {L"\u00fc\u20ac\U0001F600", 3, "\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {lone, 1, "\xEF\xBF\xBD"},  // what is no character is replaced
    };
    for (const auto& [text, length, expected] : kTexts) {
        const auto convert = [&, text = text, length = length](char* buffer, size_t size) {
            return WideCharToMultiByte(CP_THREAD_ACP, 0, text, length, buffer, static_cast<int>(size),
                                       nullptr, nullptr);
        };
        const int size = static_cast<int>(expected.size());
        EXPECT_EQ(size, convert(nullptr, 0)) << expected;
        std::string result(expected.size() + 1, '#');
        EXPECT_EQ(size, convert(result.data(), expected.size())) << expected;
        EXPECT_EQ(expected + '#', result);
        EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(convert(result.data(), expected.size() - 1)))
            << expected;
    }
}

TEST(WideCharToMultiByte, RefusesWhatItDoesNotKnow) {
    char buffer[8];
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(WideCharToMultiByte(1252, 0, L"a", -1, buffer, 8, nullptr, nullptr)));
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, nullptr, -1, buffer, 8, nullptr, nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 0, buffer, 8, nullptr, nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, buffer, 8, "?", nullptr), 0);
}

}  // namespace
