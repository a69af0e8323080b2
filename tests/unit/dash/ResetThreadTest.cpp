// The reset after a fault when there is no thread for it.
#include <gtest/gtest.h>

#include "tests/unit/dash/DashFixture.h"

namespace {

constexpr char kNoThread[] = "StartResetThread: no thread for the reset: ";

class ResetThread : public DashFixture {
  protected:
    // A session whose end is reported to the firmware in vain.
    void RefuseTheEnd() {
        ExpectErrors({kNoThread, "with error: 31", "with dwLastError = 31"});
        firmware.Refuse("WriteCloseSocketcmd", ERROR_GEN_FAILURE);
    }
    void FailThreads() { Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY, true); }
};

}  // namespace

TEST_F(ResetThread, IsDoneWithoutWhileTheNextConsoleIsServed) {
    Start(31);
    RefuseTheEnd();
    ConsoleClient first = Connect();
    AwaitSessions(1);
    FailThreads();
    first.Close();
    AwaitLog(kNoThread);
    Gate().Reset();
    const ConsoleClient second = Connect();
    AwaitSessions(2);
    EXPECT_EQ(LogCount("Resetting DASH communication"), 0u);
    firmware.ClearFaults();
    AllowError(kGateClosed);
    Stop();
}

TEST_F(ResetThread, IsNotNeededForAStopInASession) {
    Start(31);
    // The session reports its end before or after the stop closes the gate; the report fails either way.
    firmware.Refuse("WriteCloseSocketcmd", ERROR_GEN_FAILURE);
    ExpectErrors({kNoThread});
    AllowError("with error: 31");
    AllowError("with dwLastError = 31");
    AllowErrorsOfAStop();
    const ConsoleClient console = Connect();
    AwaitSessions(1);
    FailThreads();
    // The session's end may still be on its way when the stop is: its line has to come before the log closes.
    int reports = 0;
    Gate().Ask([&](const std::string& call, const void*) {
        if (call == "SetServiceStatus" && ++reports == 2) AwaitLog(kNoThread);
        return 0u;
    });
    StopService();
    EXPECT_TRUE(HasLine("INFO", "Gracefully exitting ZEL Service. Close Log File."));
}
