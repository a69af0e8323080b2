// Questions without an answer: the pipe's failures, later questions, and the service's stop.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "session/ConsentPipe.h"
#include "tests/unit/session/ConsentFixture.h"

namespace {

using namespace std::chrono_literals;

class ConsentFault : public ConsentFixture {
  protected:
    // Asks while another question is open. Until this one is put.
    void AskAnew(uint32_t type, uint32_t timeout = 30) {
        const size_t before = LogCount(kAsked);
        Ask(type, timeout);
        AwaitLogGivingUp(kAsked, before + 1);
    }
    // The stop and the end of the process. A hang shows by the test's own time limit.
    void StopAndEnd() {
        AllowErrorsOfAStop();
        StopService();
        Clock().SetManual(false);
        service.reset();
        EXPECT_EQ(firmware.Count("WriteUserConsent"), 0u);
    }
};

constexpr char kNotCreated[] = "Error creating the namedpipe. Error code: 8";
constexpr char kNotConnected[] = "Error connecting  to the namedpipe. Error code: 8";
constexpr char kNotWritten[] = "Error writing to the namedpipe. Error code: 8";

}  // namespace

TEST_F(ConsentFault, APipeThatCannotBeCreatedLeavesTheQuestionOpen) {
    ExpectError(kNotCreated);
    Gate().FailNth("CreateNamedPipeA", 1, ERROR_NOT_ENOUGH_MEMORY);
    Start();
    Ask(1);
    AwaitLog(kNotCreated);
    EXPECT_TRUE(HasLine("ERROR", kNotCreated));
    EXPECT_EQ(LogCount(kAsked), 0u);
    ExpectNoAnswer();
    // The next question has better luck.
    AskAndAnswer(2, "Consent_no");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 2, 0}));
}

TEST_F(ConsentFault, APipeIsNotCreatedWithADescriptorThatCouldNotBeMade) {
    ExpectError("Error securing the namedpipe. Error code: 87");
    Start();
    for (const char* call : {"InitializeSecurityDescriptor", "SetSecurityDescriptorDacl"}) {
        Gate().Reset();
        Gate().FailNth(call, 1, ERROR_INVALID_PARAMETER);
        Ask(1);
        ASSERT_TRUE(Eventually([] { return Gate().Failures() == 1; })) << call;
        ExpectNoAnswer();
        EXPECT_EQ(Pipes(), 0u);
    }
}

TEST_F(ConsentFault, AThreadOrAnEventThatCannotBeHadLeavesTheQuestionOpen) {
    ExpectErrors(
        {"GetUserConsent: no event to ask the user by: 8", "GetUserConsent: no thread to ask the user: "});
    Start();
    Gate().FailNth("CreateEventA", 1, ERROR_NOT_ENOUGH_MEMORY);
    Ask(1);
    AwaitLog("GetUserConsent: no event to ask the user by: 8");
    ExpectNoAnswer();
    // The first thread is the one that waits for the answer.
    Gate().FailNth("std::thread", 2, ERROR_NOT_ENOUGH_MEMORY);
    Ask(1);
    AwaitLog("GetUserConsent: no thread to ask the user: ");
    ExpectNoAnswer();
    AskAndAnswer(2, "Consent_no");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 2, 0}));
}

TEST_F(ConsentFault, AClientIsWaitedFor200Times) {
    ExpectError(kNotConnected);
    Gate().FailNth("ConnectNamedPipe", 1, ERROR_NOT_ENOUGH_MEMORY, true);
    Start();
    Ask(1);
    for (int attempt = 0; attempt < 199; ++attempt)
        PassSleepOf(10ms);
    EXPECT_EQ(LogCount(kNotConnected), 0u);
    PassSleepOf(10ms);
    AwaitLog(kNotConnected);
    EXPECT_EQ(Gate().Count("ConnectNamedPipe"), 200u);
    EXPECT_EQ(LogCount(kAsked), 200u);
    EXPECT_TRUE(HasLine("ERROR", kNotConnected));
    EXPECT_TRUE(Eventually([] {
        const UniqueFileHandle pipe(CreateFileA("\\\\.\\pipe\\userconsentfeature",
                                                GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                                nullptr));
        return !pipe && GetLastError() == ERROR_FILE_NOT_FOUND;
    }));
    ExpectNoAnswer();
}

TEST_F(ConsentFault, AWaitThatFailsForAWhileIsRepeated) {
    for (int n = 1; n <= 3; ++n)
        Gate().FailNth("ConnectNamedPipe", n, ERROR_NOT_ENOUGH_MEMORY);
    Start();
    Ask(1);
    for (int attempt = 0; attempt < 3; ++attempt)
        PassSleepOf(10ms);
    ConsentClient client;
    client.Read();
    client.Say("Consent_yes");
    AwaitLog(kTaken);
    EXPECT_EQ(LogCount(kAsked), 4u);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 1, 0}));
}

TEST_F(ConsentFault, AClientThatWasThereAlreadyIsAsGood) {
    Start();
    Gate().Delay("ConnectNamedPipe", 200ms);
    Ask(1);
    AwaitLog("Named Pipe Created Successfully");
    ConsentClient client;
    EXPECT_EQ(client.Read(), std::string("yes\n1\n30\0", 9));
    EXPECT_EQ(LogCount(kAsked), 1u);
    EXPECT_EQ(LogCount(kConnected), 1u);
    client.Say("Consent_no");
    AwaitLog(kTaken);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(ConsentFault, AQuestionThatCannotBeWrittenStaysOpen) {
    ExpectError(kNotWritten);
    Start();
    // The client's own calls are none of its.
    Ask(1);
    AwaitLog(kAsked);
    Gate().FailNth("WriteFile", 1, ERROR_NOT_ENOUGH_MEMORY);
    ConsentClient client;
    EXPECT_EQ(client.Read(), "");
    AwaitLog(kNotWritten);
    EXPECT_TRUE(HasLine("ERROR", kNotWritten));
    ExpectNoAnswer();
}

TEST_F(ConsentFault, ALaterQuestionTakesThePlaceOfOneThatNobodyCameFor) {
    Start();
    Ask(1);
    AwaitLog(kAsked);
    AskAnew(2, 60);
    ConsentClient client;
    EXPECT_EQ(client.Read(), std::string("yes\n2\n60\0", 9));
    client.Say("Consent_no");
    AwaitLog(kTaken);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 2, 0}));
    EXPECT_EQ(LogCount(kSent), 1u);
}

TEST_F(ConsentFault, ALaterQuestionTakesThePlaceOfOneThatIsBeingPut) {
    Start();
    Ask(1);
    ConsentClient first;
    first.Read();
    AwaitLog("Value:yes, Type:1, Time_limit:30");
    AskAnew(2, 60);
    EXPECT_EQ(first.Read(), "") << "the service has not hung up";
    ConsentClient second;
    EXPECT_EQ(second.Read(), std::string("yes\n2\n60\0", 9));
    second.Say("Consent_yes");
    AwaitLog(kTaken);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 1, 0}));
    EXPECT_EQ(LogCount(kSent), 1u);
}

TEST_F(ConsentFault, AnAnswerThatJustPrecedesALaterQuestionStillGoes) {
    Start();
    AskAndAnswer(3, "Consent_no");
    AskAnew(2);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{3, 2, 0}));
}

TEST_F(ConsentFault, AClientThatConnectsToACancelledPipeIsNotAsked) {
    ConsentPipe pipe;
    ASSERT_TRUE(pipe.Create());
    Gate().Delay("ConnectNamedPipe", 300ms);
    auto served = std::async(std::launch::async, [&] { return pipe.AwaitClient(); });
    AwaitLog(kAsked);
    ConsentClient client;
    pipe.Cancel();
    EXPECT_FALSE(served.get());
    EXPECT_TRUE(pipe.IsOpen());
    pipe.Close();
    EXPECT_FALSE(pipe.IsOpen());
    EXPECT_FALSE(pipe.Create()) << "a cancelled pipe is made again";
}

TEST_F(ConsentFault, APipeIsDisconnectedBeforeItIsClosed) {
    Start();
    AskAndAnswer(1, "Consent_yes");
    AwaitAnswer();
    EXPECT_EQ(Gate().Count("DisconnectNamedPipe"), 1u);
}

TEST_F(ConsentFault, AStopEndsAQuestionThatNobodyCameFor) {
    Start();
    Ask(1);
    AwaitLog(kAsked);
    StopAndEnd();
}

TEST_F(ConsentFault, AStopEndsAQuestionThatNobodyReads) {
    Start();
    Ask(1);
    ConsentClient client;
    AwaitLog(kConnected);
    StopAndEnd();
}

TEST_F(ConsentFault, AStopEndsAQuestionToASilentProgram) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    AwaitLog("Value:yes, Type:1, Time_limit:30");
    StopAndEnd();
    EXPECT_EQ(client.Read(), "");
}

TEST_F(ConsentFault, AStopEndsAQuestionToAProgramThatSaysNoAnswer) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    client.Say("nothing");
    AwaitLog(kIgnored);
    StopAndEnd();
}

TEST_F(ConsentFault, AStopEndsTheWaitForAClientThatCannotBeHad) {
    Gate().FailNth("ConnectNamedPipe", 1, ERROR_NOT_ENOUGH_MEMORY, true);
    Start();
    Ask(1);
    AwaitLog(kAsked);
    StopAndEnd();
}

TEST_F(ConsentFault, AStopEndsTheWaitBelowVersion40) {
    Start(39);
    Ask(1);
    AwaitLog("Version check is less than 40");
    StopAndEnd();
}

TEST_F(ConsentFault, AStopEndsTwoQuestionsAtOnce) {
    Start();
    Ask(1);
    AwaitLog(kAsked);
    AskAnew(2);
    StopAndEnd();
}
