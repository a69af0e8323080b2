// How Windows splits a command line.
#include <gtest/gtest.h>

#include "winhost/process/CommandLine.h"

namespace {

using Texts = std::vector<std::string>;

TEST(CommandLine, BlanksSeparateArguments) {
    EXPECT_EQ((Texts{"app", "a", "b", "c"}), winhost::SplitArguments("app a  b\tc "));
    EXPECT_EQ((Texts{""}), winhost::SplitArguments(""));
}

TEST(CommandLine, QuotesHoldBlanksTogether) {
    EXPECT_EQ((Texts{R"(C:\a b\app.exe)", "c d", "", "e f"}),
              winhost::SplitArguments(R"("C:\a b\app.exe" "c d" "" e" "f)"));
    EXPECT_EQ((Texts{"app", "never closed "}), winhost::SplitArguments("app \"never closed "));
}

TEST(CommandLine, BackslashesCountForHalfBeforeAQuote) {
    EXPECT_EQ((Texts{"app", R"(a\\b)", R"(a\)", R"(a"b)", R"(a\"b)"}),
              winhost::SplitArguments(R"(app a\\b "a\\" a\"b a\\\"b)"));
}

TEST(CommandLine, TwoQuotesWithinQuotesAreOne) {
    EXPECT_EQ((Texts{"app", R"(a"b c)", "d"}), winhost::SplitArguments(R"(app "a""b c" d)"));
}

TEST(CommandLine, BackslashesInTheFirstItemAreLetters) {
    EXPECT_EQ((Texts{R"(C:\folder\)", "x"}), winhost::SplitArguments(R"("C:\folder\" x)"));
}

}  // namespace
