// Who is asked, and what the firmware receives.
#include <gtest/gtest.h>

#include "session/DesktopLock.h"
#include "tests/unit/session/ConsentFixture.h"

namespace {

using namespace std::chrono_literals;
using Consent = ConsentFixture;

constexpr char kByDefault[] = "Windows is locked send default consent to driver";
constexpr char kExit[] = "MPM_ZEL_CMD_GET_KVM_CONSENT exit";

}  // namespace

TEST_F(Consent, OfTheUserGoesToTheFirmware) {
    Start();
    AskAndAnswer(1, "Consent_yes");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 1, 0}));
    const auto request = firmware.Requests("WriteUserConsent")[0];
    EXPECT_EQ(request.code, MailboxCode::WriteUserConsent);
    EXPECT_EQ(request.data, (std::vector<uint8_t>{1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(Consent, IsToldStepByStep) {
    Start();
    AskAndAnswer(1, "Consent_yes");
    AwaitAnswer();
    AwaitLog(kSent);
    const std::vector<std::string> lines = {"MPM_ZEL_CMD_GET_KVM_CONSENT asks for User consent entry",
                                            "Setting Check for user consent"};
    ExpectLogInOrder(lines);
    const std::vector<std::string> asking = {
        "Setting Check for user consent",
        "Type: 0x1, Timeout: 30",
        "Desktop state: Un-locked, 0",
        "Consent: 0, Consent Given: 0, Type: 1",
        "Windows is not locked",
        "Named Pipe Created Successfully",
        "Waiting for the named pipe connection",
        "Named pipe connected successfully",
        "Message written to named pipe. Bytes written:9",
        "Value:yes, Type:1, Time_limit:30",
        "Successfully read from the named pipe",
        "Message read from the named pipe is: Consent_yes ",
        "Value from consent is Consent_yes ",
        "Consent given by the user is 1",
        "Consent 0 => Timeout happend and it will return INVALID for driver, 1 => OK (Consent_yes), 2 => "
        "CANCEL (Consent_no)]",
        "Consent received by driver is 1",
        "WriteUserConsent: connecting to Driver. Input buffer size = 12"};
    AwaitLog(asking.back());
    ExpectLogInOrder(asking);
    for (size_t i = 0; i + 1 < asking.size(); ++i)
        EXPECT_TRUE(HasLine("INFO", asking[i])) << asking[i];
    for (const std::string& line : lines)
        EXPECT_TRUE(HasLine("INFO", line)) << line;
    EXPECT_TRUE(HasLine("INFO", kExit));
}

TEST_F(Consent, RefusedIsTwo) {
    Start();
    AskAndAnswer(2, "Consent_no");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 2, 0}));
    EXPECT_TRUE(HasLine("INFO", "Consent given by the user is 2"));
}

TEST_F(Consent, OfAUserWhoDoesNotAnswerTheDialogIsRefused) {
    Start();
    AskAndAnswer(1, "Consent_noreponce");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(Consent, GoesOutAtTheNextLook) {
    Start();
    Ask(1);
    ConsentClient client;
    client.Read();
    // An answer that comes before the first look is not waited for.
    ASSERT_TRUE(Clock().AwaitSleeper(3s));
    client.Say("Consent_yes");
    AwaitLog(kTaken);
    Advance(2999ms);
    EXPECT_EQ(firmware.Count("WriteUserConsent"), 0u);
    Advance(1ms);
    EXPECT_TRUE(firmware.AwaitCount("WriteUserConsent", 1));
}

TEST_F(Consent, IsWaitedForWithoutHoldingUpTheFirmware) {
    Start();
    Ask(1);
    AwaitHandled();
    AwaitLog(kAsked);
    EXPECT_TRUE(HasLine("INFO", kExit));
    EXPECT_EQ(firmware.Count("WriteUserConsent"), 0u);
}

TEST_F(Consent, BelowVersion40GoesNowhere) {
    constexpr char kLine[] = "Version check is less than 40 user consent is disabled and send ok to driver";
    Start(39);
    Ask(1);
    AwaitLog(kLine);
    EXPECT_TRUE(HasLine("INFO", kLine));
    ExpectNoAnswer();
    EXPECT_EQ(Pipes(), 0u);
    EXPECT_EQ(Gate().Count("WTSQuerySessionInformationA"), 0u);
}

TEST_F(Consent, IsAskedForAgainWhenTheFirmwareHasGrown) {
    Start(39);
    Ask(1);
    AwaitLog("Version check is less than 40");
    service->m_vorkVersion = 40;
    AskAndAnswer(2, "Consent_no");
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 2, 0}));
    // The first question has been given up.
    ASSERT_TRUE(Eventually([] { return !Clock().AwaitSleeper(3s, 1ms); }));
}

TEST_F(Consent, OfALockedDesktopIsGivenAtOnce) {
    Pc().Change([](auto& description) { description.desktopLocked = true; });
    Start();
    Ask(2);
    const auto request = firmware.AwaitRequest("WriteUserConsent");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<UserConsentAnswer>(), (UserConsentAnswer{2, 1, 0}));
    EXPECT_EQ(Pipes(), 0u);
    ExpectLogInOrder({"Type: 0x2, Timeout: 30", "Desktop state: Locked, 1",
                      "Consent: 1, Consent Given: 0, Type: 2", kByDefault,
                      "Consent received by driver is 1"});
    EXPECT_TRUE(HasLine("INFO", "Desktop state: Locked, 1"));
    EXPECT_TRUE(HasLine("INFO", kByDefault));
}

TEST_F(Consent, OfTypeZeroIsGivenAtOnceWhateverTheDesktop) {
    Start();
    for (const bool locked : {false, true}) {
        Pc().Change([&](auto& description) { description.desktopLocked = locked; });
        firmware.Clear();
        Ask(0);
        const auto request = firmware.AwaitRequest("WriteUserConsent");
        ASSERT_TRUE(request);
        EXPECT_EQ(request->As<UserConsentAnswer>(), (UserConsentAnswer{0, 1, 0}));
    }
    EXPECT_EQ(Pipes(), 0u);
    EXPECT_EQ(LogCount(kByDefault), 2u);
}

TEST_F(Consent, IsAskedForWhenTheStateOfTheDesktopCannotBeTold) {
    Pc().Change([](auto& description) { description.desktopLocked = true; });
    Gate().FailNth("WTSQuerySessionInformationA", 1, ERROR_ACCESS_DENIED);
    Start();
    AskAndAnswer(1, "Consent_no");
    EXPECT_TRUE(HasLine("INFO", "Desktop state: Un-locked, 0"));
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(Consent, IsAskedForWhenNoSessionIsAtTheConsole) {
    Pc().Change([](auto& description) {
        description.desktopLocked = true;
        description.consoleSession = winhost::PcDescription::kNoSession;
    });
    Start();
    Ask(1);
    AwaitLog(kAsked);
    EXPECT_TRUE(HasLine("INFO", "Desktop state: Un-locked, 0"));
}

TEST_F(Consent, IsAskedForWhenTheAnswerAboutTheDesktopIsShortOrUnknown) {
    // The whole answer says that the desktop is locked.
    Pc().Change([](auto& description) {
        description.desktopLocked = true;
        description.sessionInfoLevel = 2;
    });
    EXPECT_FALSE(IsDesktopLocked());
    Pc().Change([](auto& description) {
        description.sessionInfoLevel = 1;
        description.sessionInfoBytes = 16;
    });
    EXPECT_FALSE(IsDesktopLocked());
    Pc().Change([](auto& description) { description.sessionInfoBytes = 0; });
    EXPECT_TRUE(IsDesktopLocked());
}

TEST_F(Consent, CanBeGivenByEveryUser) {
    Start();
    Ask(1);
    AwaitLog(kAsked);
    // The service runs as the system, which made the pipe.
    Pc().Change([](auto& description) { description.userName = "alice"; });
    ConsentClient client;
    EXPECT_EQ(client.Read(), std::string("yes\n1\n30\0", 9));
    client.Say("Consent_yes");
    AwaitLog(kTaken);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{1, 1, 0}));
}

// All instances of a pipe have to name the same limit.
TEST_F(Consent, IsAskedForByAPipeOfAnyNumberOfInstances) {
    Start();
    Ask(1);
    AwaitLog(kAsked);
    const UniqueFileHandle another(CreateNamedPipeA("\\\\.\\pipe\\userconsentfeature", PIPE_ACCESS_DUPLEX,
                                                    PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                                    PIPE_UNLIMITED_INSTANCES, 0, 0, 0, nullptr));
    EXPECT_TRUE(another) << GetLastError();
}

TEST_F(Consent, CountsAsGivenWhileTheUsersAnswerWaitsToGo) {
    Start();
    AskAndAnswer(1, "Consent_yes");
    Ask(2);
    // No time passes.
    ASSERT_TRUE(firmware.AwaitCount("WriteUserConsent", 1));
    EXPECT_EQ(firmware.Requests("WriteUserConsent")[0].As<UserConsentAnswer>(), (UserConsentAnswer{2, 1, 0}));
    EXPECT_TRUE(HasLine("INFO", "Consent: 0, Consent Given: 1, Type: 2"));
    EXPECT_EQ(Pipes(), 1u);
    // The user's goes as well.
    EXPECT_EQ(AwaitAnswer(2), (UserConsentAnswer{1, 1, 0}));
    // And counts no longer.
    AskAndAnswer(1, "Consent_no");
    EXPECT_EQ(AwaitAnswer(3), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(Consent, OfAnotherTypeDoesNotCountForTheNextQuestion) {
    Start();
    AskAndAnswer(3, "Consent_yes");
    Ask(1);
    AwaitLog("Consent: 0, Consent Given: 0, Type: 1");
    AwaitLog(kAsked, 2);
}

TEST_F(Consent, IsAskedForWithTheTimeLimitThatTheFirmwareNames) {
    Start();
    Ask(1, 120);
    ConsentClient client;
    EXPECT_EQ(client.Read(), std::string("yes\n1\n120\0", 10));
    AwaitLog("Value:yes, Type:1, Time_limit:120");
    EXPECT_TRUE(HasLine("INFO", "Message written to named pipe. Bytes written:10"));
}

TEST_F(Consent, OfAShortQuestionKeepsTheRestOfTheOneBefore) {
    Start();
    AskAndAnswer(1, "Consent_yes");
    AwaitAnswer();
    firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT, {2, 0, 0, 0});
    AwaitLog("Type: 0x2, Timeout: 30");
    firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT, {3});
    AwaitLogGivingUp("Type: 0x3, Timeout: 30");
    firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT);
    AwaitLogGivingUp("Type: 0x3, Timeout: 30", 2);
}

TEST_F(Consent, OfAnEmptyFirstQuestionIsOfTypeZero) {
    Start();
    firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT);
    const auto request = firmware.AwaitRequest("WriteUserConsent");
    ASSERT_TRUE(request);
    EXPECT_EQ(request->As<UserConsentAnswer>(), (UserConsentAnswer{0, 1, 0}));
}

TEST_F(Consent, OfALongQuestionIsCut) {
    Start();
    firmware.Send(MPM_ZEL_CMD_GET_KVM_CONSENT,
                  std::string("\2\0\0\0\x1e\0\0\0", 8) + std::string(5000, '\xff'));
    AwaitLog("Type: 0x2, Timeout: 30");
    ConsentClient client;
    EXPECT_EQ(client.Read(), std::string("yes\n2\n30\0", 9));
    client.Say("Consent_yes");
    AwaitLog(kTaken);
    EXPECT_EQ(AwaitAnswer(), (UserConsentAnswer{2, 1, 0}));
}

TEST_F(Consent, ThatTheFirmwareRefusesIsNotSentAgain) {
    ExpectErrors({kRefused, kRefusedReturn});
    Start();
    firmware.Refuse("WriteUserConsent", ERROR_GEN_FAILURE, 1);
    AskAndAnswer(1, "Consent_yes");
    AwaitAnswer();
    AwaitLog(kRefusedReturn);
    AskAndAnswer(1, "Consent_no");
    EXPECT_EQ(AwaitAnswer(2), (UserConsentAnswer{1, 2, 0}));
}

TEST_F(Consent, OfManyQuestionsKeepsNoHandles) {
    Start();
    size_t handles = 0;
    for (size_t count = 1; count <= 20; ++count) {
        AskAndAnswer(1, count % 2 ? "Consent_yes" : "Consent_no");
        ASSERT_EQ(AwaitAnswer(count).Consent, count % 2 ? 1u : 2u);
        if (count == 1) {
            AwaitHandled();
            handles = OpenHandles();
        }
    }
    EXPECT_TRUE(Eventually([&] { return OpenHandles() == handles; })) << OpenHandles() << " for " << handles;
}
