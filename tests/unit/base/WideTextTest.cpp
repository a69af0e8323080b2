// UTF-16 in the records, UTF-8 in the log.
#include "base/FieldText.h"
#include "base/WideText.h"

#include "base/Log.h"
#include "tests/support/ServiceFixture.h"

namespace {

std::u16string Filled(std::wstring_view text, size_t fieldSize) {
    std::u16string field(fieldSize, u'#');
    FillUtf16(field, text);
    return field;
}

class WideLog : public ServiceFixture {
  protected:
    std::string Last() { return Messages().back(); }
};

}  // namespace

TEST(WideText, BecomesUtf8WhateverTheSizeOfItsUnits) {
    EXPECT_EQ(ToUtf8(L"a\u00E9\u20AC\U0001F5A5", 100), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x96\xA5");
    EXPECT_EQ(ToUtf8(u"a\u00E9\u20AC\U0001F5A5", 100), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x96\xA5");
}

TEST(WideText, HasAsManyBytesAsACharacterNeeds) {
    EXPECT_EQ(ToUtf8(u"\u007F\u0080", 100), "\x7F\xC2\x80");
    EXPECT_EQ(ToUtf8(u"\u07FF\u0800", 100), "\xDF\xBF\xE0\xA0\x80");
    EXPECT_EQ(ToUtf8(u"\uFFFF\U00010000", 100), "\xEF\xBF\xBF\xF0\x90\x80\x80");
}

TEST(WideText, IsCutToWholeCharacters) {
    EXPECT_EQ(ToUtf8(u"ab\u20AC", 4), "ab");
    EXPECT_EQ(ToUtf8(u"ab\u20AC", 5), "ab\xE2\x82\xAC");
}

TEST(WideText, HalfAPairIsNoCharacter) {
    const char16_t lonely[] = {0xD83D, u'x', 0xDDA5, 0};
    EXPECT_EQ(ToUtf8(lonely, 100), "\xEF\xBF\xBDx\xEF\xBF\xBD");
    const char16_t last[] = {u'x', 0xD83D, 0};
    EXPECT_EQ(ToUtf8(last, 100), "x\xEF\xBF\xBD");
    const char16_t ends[] = {0xDFFF, 0xE000, 0xD7FF, 0};
    EXPECT_EQ(ToUtf8(ends, 100), "\xEF\xBF\xBD\xEE\x80\x80\xED\x9F\xBF");
}

TEST(WideText, FillsAFieldToItsEnd) {
    EXPECT_EQ(Filled(L"ab", 5), std::u16string(u"ab\0\0\0", 5));
    EXPECT_EQ(Filled(L"", 3), std::u16string(u"\0\0\0", 3));
}

TEST(WideText, ALongTextIsCutToLeaveTheNul) {
    EXPECT_EQ(Filled(std::wstring(64, L'x'), 64), std::u16string(63, u'x') + u'\0');
    EXPECT_EQ(Filled(std::wstring(63, L'x'), 64), std::u16string(63, u'x') + u'\0');
}

TEST(WideText, APairIsNotCutInTwo) {
    EXPECT_EQ(Filled(L"ab\U0001F5A5", 4), std::u16string(u"ab\0\0", 4));
    EXPECT_EQ(Filled(L"ab\U0001F5A5", 5), std::u16string(u"ab\U0001F5A5\0", 5));
}

TEST(WideText, AFieldWithoutANulEndsWithTheField) {
    const char field[3] = {'a', 'b', 'c'};
    EXPECT_EQ(TextInField(field), "abc");
    const char16_t wide[4] = {u'a', 0, u'b', 0};
    EXPECT_EQ(TextInField(wide), u"a");
}

TEST_F(WideLog, TakesWideTextOfEitherKind) {
    const char16_t field[8] = u"9\u00E9";
    const wchar_t* none = nullptr;
    LogInfo("%ls|%ls|%ls|%ls|%s", field, L"w", std::wstring(L"s"), none, "n");
    EXPECT_EQ(Last(), "9\xC3\xA9|w|s|(null)|n");
}

TEST_F(WideLog, ALongTextLeavesTheLineItsEnd) {
    LogInfo("%ls", std::wstring(5000, L'\u20AC'));
    EXPECT_EQ(Log().back().text.size(), 1023u);
    EXPECT_EQ(Log().back().level, "INFO");
}
