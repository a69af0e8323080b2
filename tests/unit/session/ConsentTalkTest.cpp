// What the program in the user's session says, and when.
#include <gtest/gtest.h>

#include <utility>

#include "tests/unit/session/ConsentFixture.h"

namespace {

using namespace std::chrono_literals;

class ConsentTalk : public ConsentFixture {
  protected:
    // Sends what is no answer, and waits until it has been received.
    void SayInVain(ConsentClient& client, const std::string& text) {
        const size_t before = LogCount(kIgnored);
        client.Say(text);
        AwaitLog(kIgnored, before + 1);
    }
    UserConsentAnswer Answer(ConsentClient& client, const std::string& text) {
        client.Say(text);
        AwaitLog(kTaken);
        return AwaitAnswer();
    }
    // A question that runs into its time limit.
    void AskInVain(uint32_t type) {
        const size_t before = LogCount(kTimeReached);
        Ask(type, 1);
        ConsentClient client;
        client.Read();
        SayInVain(client, "nothing");
        PassLooks(2);
        AwaitLog(kTimeReached, before + 1);
    }
};

constexpr char kNothingRead[] = "reading from namedpipe failed or no of bytes read is 0";

}  // namespace

TEST_F(ConsentTalk, CutsTheAnswerAtTheFirstLineBreakOrNul) {
    Start();
    size_t count = 0;
    for (const std::string& text :
         {std::string("Consent_no\r\n"), std::string("Consent_no\n"), std::string("Consent_no\r"),
          std::string("Consent_no\0Consent_yes", 22), std::string("Consent_no\nConsent_yes")}) {
        AskAndAnswer(1, text);
        EXPECT_EQ(AwaitAnswer(++count), (UserConsentAnswer{1, 2, 0})) << text;
    }
    EXPECT_EQ(LogCount("Message read from the named pipe is: Consent_no "), count);
}

TEST_F(ConsentTalk, IgnoresWhatIsNoAnswerToTheLetter) {
    Start();
    Ask(1, 90);
    ConsentClient client;
    client.Read();
    for (const char* text : {"yes", "no", "consent_yes", "Consent_ye", "Consent_yess", " Consent_yes",
                             "Consent_no ", "\nConsent_yes", "CONSENT_NO"}) {
        SayInVain(client, text);
        PassLooks(2);
    }
    EXPECT_EQ(LogCount(kTaken), 0u);
    EXPECT_TRUE(HasLine("INFO", "Message read from the named pipe is: yes "));
    EXPECT_TRUE(HasLine("INFO", kIgnored));
    EXPECT_EQ(Answer(client, "Consent_yes"), (UserConsentAnswer{1, 1, 0}));
}

TEST_F(ConsentTalk, ListensAgainThreeSecondsAfterWhatIsNoAnswer) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    SayInVain(client, "nothing");
    client.Say("Consent_no");
    ASSERT_TRUE(Clock().AwaitSleepersOf(3s, 2));
    Advance(2999ms);
    EXPECT_EQ(LogCount("Message read from the named pipe is: "), 1u);
    Advance(1ms);
    AwaitLog(kTaken);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(ConsentTalk, TakesAnEmptyMessageForNothing) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    SayInVain(client, "");
    ExpectLogInOrder({kNothingRead, "Message read from the named pipe is:  ", kIgnored});
    EXPECT_TRUE(HasLine("INFO", kNothingRead));
    PassLooks(2);
    EXPECT_EQ(Answer(client, "Consent_yes"), (UserConsentAnswer{1, 1, 0}));
}

TEST_F(ConsentTalk, TakesA511ByteMessageWhole) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    EXPECT_EQ(Answer(client, "Consent_yes\n" + std::string(499, 'x')), (UserConsentAnswer{1, 1, 0}));
}

TEST_F(ConsentTalk, TakesA600ByteMessageForTwoThatAreNoAnswers) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    SayInVain(client, "Consent_yes\n" + std::string(588, 'x'));
    EXPECT_EQ(LogCount(kNothingRead), 1u);
    PassLooks(2);
    AwaitLog("Message read from the named pipe is: " + std::string(89, 'x') + " ");
    AwaitLog(kIgnored, 2);
    EXPECT_EQ(LogCount(kTaken), 0u);
    PassLooks(2);
    EXPECT_EQ(Answer(client, "Consent_no"), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(ConsentTalk, GivesUpWhenTheTimeLimitHasPassed) {
    Start();
    Ask(1, 5);
    ConsentClient client;
    client.Read();
    SayInVain(client, "nothing");
    PassLooks(2);
    SayInVain(client, "nothing");
    EXPECT_EQ(LogCount(kTimeReached), 0u);
    PassLooks(2);
    AwaitLog(kTimeReached);
    EXPECT_TRUE(HasLine("INFO", kTimeReached));
    // The service hangs up.
    EXPECT_EQ(client.Read(), "");
    AwaitAnswer();
}

TEST_F(ConsentTalk, GivesUpAfter90SecondsWhateverTheTimeLimit) {
    Start();
    Ask(1, 120);
    ConsentClient client;
    EXPECT_EQ(client.Read(), std::string("yes\n1\n120\0", 10));
    SayInVain(client, "nothing");
    ASSERT_TRUE(Clock().AwaitSleepersOf(3s, 2));
    Advance(90s);
    // On the last second of the time it still listens.
    SayInVain(client, "nothing");
    EXPECT_EQ(LogCount(kTimeReached), 0u);
    PassLooks(2);
    AwaitLog(kTimeReached);
    AwaitAnswer();
}

TEST_F(ConsentTalk, GivesUpAtTheFirstLookBehindTheTimeLimit) {
    Start();
    size_t count = 0;
    for (const auto& [named, applied] : {std::pair(5u, 5s), {90u, 90s}, {120u, 90s}}) {
        Ask(1, named);
        ConsentClient client;
        client.Read();
        SayInVain(client, "nothing");
        ASSERT_TRUE(Clock().AwaitSleepersOf(3s, 2));
        Advance(applied + 1us);
        AwaitLog(kTimeReached, ++count);
        AwaitAnswer(count);
    }
}

TEST_F(ConsentTalk, NeedsNoLongerThanOneAnswerForATimeLimitOfZero) {
    Start();
    Ask(1, 0);
    ConsentClient client;
    client.Read();
    EXPECT_EQ(Answer(client, "Consent_no"), (UserConsentAnswer{1, 2, 0}));
}

// The time is only looked at between reads.
TEST_F(ConsentTalk, DoesNotNoticeThatTheTimeHasPassedWhileTheProgramIsSilent) {
    Start();
    Ask(1, 5);
    ConsentClient client;
    client.Read();
    AwaitLog("Value:yes, Type:1, Time_limit:5");
    for (int look = 0; look < 40; ++look)
        PassLooks(1);
    EXPECT_EQ(LogCount(kTimeReached), 0u);
    EXPECT_EQ(firmware.Count("WriteUserConsent"), 0u);
    // And an answer counts, however late.
    EXPECT_EQ(Answer(client, "Consent_no"), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(ConsentTalk, GivesUpWhenWhatIsNoAnswerComesTooLate) {
    Start();
    Ask(1, 5);
    ConsentClient client;
    client.Read();
    AwaitLog("Value:yes, Type:1, Time_limit:5");
    PassLooks(1);
    PassLooks(1);
    SayInVain(client, "nothing");
    PassLooks(2);
    AwaitLog(kTimeReached);
    AwaitAnswer();
}

TEST_F(ConsentTalk, GivesConsentByDefaultWhenTheFirstQuestionRunsOutOfTime) {
    Start();
    AskInVain(2);
    // The answer is the one that there was before any question, its type included.
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{0, 1, 0}));
}

TEST_F(ConsentTalk, RepeatsTheLastAnswerWhenAQuestionRunsOutOfTime) {
    Start();
    AskAndAnswer(2, "Consent_no");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 2, 0}));
    AskInVain(1);
    EXPECT_EQ(AwaitAnswer(2), (UserConsentAnswer{2, 2, 0}));
    AskInVain(3);
    EXPECT_EQ(AwaitAnswer(3), (UserConsentAnswer{2, 2, 0}));
}

TEST_F(ConsentTalk, RepeatsTheAnswerOfALockedDesktopToo) {
    Start();
    AskAndAnswer(2, "Consent_no");
    AwaitAnswer();
    Pc().Change([](auto& description) { description.desktopLocked = true; });
    Ask(1);
    EXPECT_EQ(AwaitAnswer(2), (UserConsentAnswer{1, 1, 0}));
    Pc().Change([](auto& description) { description.desktopLocked = false; });
    AskInVain(2);
    EXPECT_EQ(AwaitAnswer(3), (UserConsentAnswer{1, 1, 0}));
}

TEST_F(ConsentTalk, WaitsForTheTimeLimitWhenTheProgramGoesAway) {
    Start();
    Ask(1, 5);
    {
        ConsentClient client;
        client.Read();
        AwaitLog("Value:yes, Type:1, Time_limit:5");
    }
    AwaitLog(kIgnored);
    EXPECT_EQ(LogCount(kNothingRead), 1u);
    PassLooks(2);
    AwaitLog(kIgnored, 2);
    EXPECT_EQ(firmware.Count("WriteUserConsent"), 0u);
    PassLooks(2);
    AwaitLog(kTimeReached);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{0, 1, 0}));
}

TEST_F(ConsentTalk, LeavesTheQuestionOpenWhenTheProgramGoesAwayBeforeItIsPut) {
    ExpectError("Error writing to the namedpipe. Error code: ");
    Start();
    Gate().Delay("WriteFile", 300ms);
    Ask(1);
    {
        ConsentClient client;
        AwaitLog(kConnected);
    }
    AwaitLog("Error writing to the namedpipe. Error code: ");
    ExpectNoAnswer();
}
