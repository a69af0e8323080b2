#include "winhost/tests/PcFixture.h"

namespace {

using EventLogTest = PcFixture;

TEST_F(EventLogTest, AnEntryIsRecordedWithItsTexts) {
    const HANDLE source = RegisterEventSourceA(nullptr, "Source");
    ASSERT_NE(nullptr, source);
    const char* texts[] = {"first", "second"};
    EXPECT_TRUE(ReportEventA(source, EVENTLOG_ERROR_TYPE, 0, 0xC0020001, nullptr, 2, 0, texts, nullptr));
    EXPECT_TRUE(DeregisterEventSource(source));
    const auto log = Records<winhost::EventLogEntry>();
    ASSERT_EQ(1u, log.size());
    EXPECT_EQ("Source", log[0].source);
    EXPECT_EQ(EVENTLOG_ERROR_TYPE, log[0].type);
    EXPECT_EQ(0xC0020001, log[0].eventId);
    EXPECT_EQ((std::vector<std::string>{"first", "second"}), log[0].strings);
}

TEST_F(EventLogTest, AnEmptySourceIsLegal) {
    const HANDLE source = RegisterEventSourceA(nullptr, "");
    ASSERT_NE(nullptr, source);
    EXPECT_TRUE(ReportEventA(source, EVENTLOG_INFORMATION_TYPE, 0, 1, nullptr, 0, 0, nullptr, nullptr));
    EXPECT_EQ("", Records<winhost::EventLogEntry>().at(0).source);
    EXPECT_TRUE(DeregisterEventSource(source));
}

TEST_F(EventLogTest, ASourceNeedsANameAndThisPc) {
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(RegisterEventSourceA(nullptr, nullptr)));
    EXPECT_EQ(RPC_S_SERVER_UNAVAILABLE, ErrorOf(RegisterEventSourceA("\\\\elsewhere", "Source")));
}

TEST_F(EventLogTest, AClosedSourceReportsNothing) {
    const HANDLE source = RegisterEventSourceA(nullptr, "Source");
    EXPECT_FALSE(CloseHandle(source)) << "it has a closing call of its own";
    EXPECT_TRUE(DeregisterEventSource(source));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(DeregisterEventSource(source)));
    EXPECT_EQ(ERROR_INVALID_HANDLE,
              ErrorOf(ReportEventA(source, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 0, 0, nullptr, nullptr)));
    EXPECT_TRUE(Records<winhost::EventLogEntry>().empty());
}

TEST_F(EventLogTest, AnUnknownTypeAndMissingTextsAreRefused) {
    const HANDLE source = Keep(RegisterEventSourceA(nullptr, "Source"), DeregisterEventSource);
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(ReportEventA(source, 3, 0, 1, nullptr, 0, 0, nullptr, nullptr)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER,
              ErrorOf(ReportEventA(source, EVENTLOG_ERROR_TYPE, 0, 1, nullptr, 1, 0, nullptr, nullptr)));
}

}  // namespace
