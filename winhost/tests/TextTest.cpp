#include <gtest/gtest.h>

#include <windows.h>

#include <string>

namespace {

int Convert(LPCWSTR text, int length, std::string& result, int size) {
    result.assign(static_cast<size_t>(size), '#');
    return WideCharToMultiByte(CP_THREAD_ACP, 0, text, length, result.data(), size, nullptr, nullptr);
}

TEST(WideCharToMultiByte, TakesTheNulWithAnUnknownLength) {
    std::string result;
    EXPECT_EQ(Convert(L"abc", -1, result, 10), 4);
    EXPECT_EQ(result.substr(0, 4), std::string("abc\0", 4));
}

TEST(WideCharToMultiByte, TakesNoNulWithAGivenLength) {
    std::string result;
    EXPECT_EQ(Convert(L"abc", 2, result, 10), 2);
    EXPECT_EQ(result.substr(0, 3), "ab#");
}

TEST(WideCharToMultiByte, TellsTheSizeThatItNeeds) {
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"M\u00fcnchen", -1, nullptr, 0, nullptr, nullptr), 9);
}

TEST(WideCharToMultiByte, WritesUtf8) {
    std::string result;
    EXPECT_EQ(Convert(L"\u00fc\u20ac\U0001F600", 3, result, 9), 9);
    EXPECT_EQ(result, "\xC3\xBC\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(WideCharToMultiByte, ReplacesWhatIsNoCharacter) {
    const wchar_t lone[] = {0xD800, 0};
    std::string result;
    EXPECT_EQ(Convert(lone, 1, result, 9), 3);
    EXPECT_EQ(result.substr(0, 3), "\xEF\xBF\xBD");
}

TEST(WideCharToMultiByte, NeverWritesBeyondTheBuffer) {
    std::string result;
    EXPECT_EQ(Convert(L"abcd", -1, result, 4), 0);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(WideCharToMultiByte, RefusesWhatItDoesNotKnow) {
    char buffer[8];
    EXPECT_EQ(WideCharToMultiByte(1252, 0, L"a", -1, buffer, 8, nullptr, nullptr), 0);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, nullptr, -1, buffer, 8, nullptr, nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", 0, buffer, 8, nullptr, nullptr), 0);
    EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, L"a", -1, buffer, 8, "?", nullptr), 0);
}

}  // namespace
