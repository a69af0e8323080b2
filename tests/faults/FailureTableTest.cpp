// The table of failures knows every call that passes the gate.
#include "tests/faults/FailureTable.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace {

// The names of the calls that can fail, as the sources of winhost give them to the gate.
std::set<std::string> GatedCalls() {
    const std::regex gate(R"re((?:WINHOST_GATE(?:_CODE|_HRESULT|_METHOD)?\(|GateSite site\()"([^"]+)")re");
    std::set<std::string> calls;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(WINHOST_SOURCES)) {
        if (entry.path().extension() != ".cpp") continue;
        std::ifstream file(entry.path());
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        for (auto match = std::sregex_iterator(text.begin(), text.end(), gate);
             match != std::sregex_iterator(); ++match)
            calls.insert((*match)[1]);
    }
    return calls;
}

}  // namespace

TEST(FailureTable, KnowsEveryCallThatCanFail) {
    const auto calls = GatedCalls();
    EXPECT_GT(calls.size(), 100u);
    for (const std::string& call : calls)
        EXPECT_NE(FindFailure(call), nullptr) << call << " needs a row that says how it can fail";
}

TEST(FailureTable, KnowsNoCallThatIsNotThere) {
    const auto calls = GatedCalls();
    for (const FailureEntry& entry : FailureTable())
        EXPECT_EQ(calls.count(entry.call), 1u) << entry.call;
}

TEST(FailureTable, HasOneEntryForEachCall) {
    std::set<std::string> calls;
    for (const FailureEntry& entry : FailureTable())
        EXPECT_TRUE(calls.insert(entry.call).second) << entry.call;
}

TEST(FailureTable, SaysWhyACallDoesNotFail) {
    for (const FailureEntry& entry : FailureTable())
        EXPECT_TRUE(!entry.errors.empty() || entry.reason) << entry.call;
}

TEST(FailureTable, HasErrorsThatAreOnes) {
    for (const FailureEntry& entry : FailureTable())
        for (const uint32_t error : entry.errors)
            EXPECT_NE(error, 0u) << entry.call;
}
