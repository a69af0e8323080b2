// Events as lines for people.
#include "firmware/Report.h"

#include <gtest/gtest.h>

namespace mpm::test {
namespace {

// What a host puts into a record, as the line about it shows it.
std::string LineOfUpgrade(std::string_view text) {
    Event event;
    event.kind = Event::Kind::Message;
    event.name = "MPM_ZEL_CMD_SOFTWARE_UPGRADE";
    event.code = MPM_ZEL_CMD_SOFTWARE_UPGRADE;
    event.data = Bytes(text);
    return LineOf(JsonOf(event));
}

}  // namespace

TEST(ReportTest, ALineTellsTheFieldsOfARecord) {
    EXPECT_NE(LineOfUpgrade("new version").find(R"(11 bytes text="new version")"), std::string::npos);
}

TEST(ReportTest, ALineDoesNothingToATerminal) {
    for (const char c : LineOfUpgrade("\x1b[2J\x7f\b\xff"))
        EXPECT_TRUE(c >= ' ' && c <= '~') << int(c);
}

}  // namespace mpm::test
