// The password of the service account: the change in the directory, and the status that the firmware gets.
#include "identity/AdPassword.h"

#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <sstream>
#include <system_error>

#include "mailbox/FirmwareCommands.h"
#include "mailbox/Requests.h"
#include "service/CommandDispatch.h"
#include "tests/support/ServiceFixture.h"

namespace {

constexpr char kOld[] = "old secret", kNew[] = "new secret";

std::string PasswordRecord(const std::string& oldPassword, const std::string& newPassword) {
    ADPasswordUpdate update{};
    std::memcpy(update.OldPassword, oldPassword.data(),
                std::min(oldPassword.size(), sizeof update.OldPassword));
    std::memcpy(update.NewPassword, newPassword.data(),
                std::min(newPassword.size(), sizeof update.NewPassword));
    return {reinterpret_cast<const char*>(&update), sizeof update};
}

class AdPassword : public ServiceFixture {
  protected:
    void SetUp() override {
        ServiceFixture::SetUp();
        OpenMailbox();
    }
    void Describe(winhost::PcDescription& description) override {
        ServiceFixture::Describe(description);
        description.computerName = "Sales-Laptop7";
        description.dnsDomain = "corp.Example";
        description.directory.domain = "corp.example";
        winhost::DirectoryAccount account;
        account.name = "Sales-Laptop7_vork_service";
        account.passwordHash = winhost::PasswordHash(kOld);
        description.directory.accounts = {account};
    }

    void Receive(const std::string& payload) {
        std::vector<uint8_t> message(payload.begin(), payload.end());
        message.push_back(MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD);
        message.push_back(0);
        ProcessRead(service.get(), static_cast<uint32_t>(message.size()), message.data());
    }
    // The status that the firmware has got of the command number `count`.
    uint32_t AwaitStatus(size_t count = 1) {
        EXPECT_TRUE(firmware.AwaitCount("WritePwdUpdateStatus", count));
        uint32_t status = 0xFFFFFFFF;
        const auto requests = firmware.Requests(std::string("WritePwdUpdateStatus"));
        if (requests.size() == count && requests.back().data.size() == sizeof status)
            std::memcpy(&status, requests.back().data.data(), sizeof status);
        return status;
    }
    uint32_t StatusOf(const std::string& oldPassword, const std::string& newPassword) {
        Receive(PasswordRecord(oldPassword, newPassword));
        return AwaitStatus(++m_commands);
    }
    void AwaitWorkers() { EXPECT_TRUE(service->m_detachedThreads.AwaitEnd(INFINITE)); }
    static std::vector<winhost::PasswordChange> Changes() { return Pc().Records<winhost::PasswordChange>(); }
    static std::string Hash() {
        return Pc().Get(&winhost::PcDescription::directory).accounts[0].passwordHash;
    }
    static void ChangeDirectory(const std::function<void(winhost::Directory&)>& change) {
        Pc().Change([&](winhost::PcDescription& pc) { change(pc.directory); });
    }

    static constexpr char kFailed[] = "AD Password change failed with error ";

  private:
    size_t m_commands = 0;
};

template <class Value>
bool IsWiped(const unsigned char (&memory)[sizeof(Value)]) {
    return std::all_of(std::begin(memory), std::end(memory), [](unsigned char byte) { return byte == 0; });
}

}  // namespace

TEST_F(AdPassword, IsChangedInTheDirectory) {
    EXPECT_EQ(StatusOf(kOld, kNew), 0u);
    EXPECT_EQ(Hash(), winhost::PasswordHash(kNew));
    ExpectLogInOrder({"MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD received", "Hostname: Sales-Laptop7",
                      "DNS domain: corp.Example",
                      "Service account name: Sales-Laptop7_vork_service Domainname: corp.Example",
                      "AD Password change successful", "WritePwdUpdateStatus: connecting to Driver"});
    EXPECT_TRUE(HasLine("INFO", "MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD received"));
    EXPECT_TRUE(HasLine("INFO", "Service account name: Sales-Laptop7_vork_service Domainname: corp.Example"));
    EXPECT_TRUE(HasLine("INFO", "AD Password change successful"));
}

TEST_F(AdPassword, TheDomainAloneIsInUpperCase) {
    StatusOf(kOld, kNew);
    ASSERT_EQ(Changes().size(), 1u);
    EXPECT_EQ(Changes()[0].domain, "CORP.EXAMPLE");
    EXPECT_EQ(Changes()[0].user, "Sales-Laptop7_vork_service");
}

TEST_F(AdPassword, ARefusalReachesTheFirmwareWithItsCode) {
    ExpectError(kFailed);
    EXPECT_EQ(StatusOf("wrong", kNew), 86u);
    EXPECT_EQ(StatusOf(kOld, "short"), 2245u);
    Pc().Change([](winhost::PcDescription& pc) { pc.directory.accounts[0].name = "another"; });
    EXPECT_EQ(StatusOf(kOld, kNew), 2221u);
    ChangeDirectory([](winhost::Directory& directory) { directory.reachable = false; });
    EXPECT_EQ(StatusOf(kOld, kNew), 1351u);
    EXPECT_EQ(Hash(), winhost::PasswordHash(kOld));
    EXPECT_EQ(LogCount("AD Password change successful"), 0u);
}

// The line has the last error of the thread, which is not the result of the call.
TEST_F(AdPassword, TheLineOfARefusalShowsTheLastError) {
    SetLastError(4711);
    ExpectError("AD Password change failed with error 4711");
    AdPasswordContext context;
    context.mailbox = &service->m_mailBoxDriverInterface;
    AdPasswordWorker(context);
    EXPECT_EQ(context.status, 86u);
    EXPECT_EQ(AwaitStatus(), 86u);
}

TEST_F(AdPassword, AHostOutsideOfADomainAsksForNoDomain) {
    Pc().Change([](winhost::PcDescription& pc) { pc.dnsDomain.clear(); });
    ExpectError(kFailed);
    EXPECT_EQ(StatusOf(kOld, kNew), 2221u);
    ASSERT_EQ(Changes().size(), 1u);
    EXPECT_EQ(Changes()[0].domain, "");
    EXPECT_TRUE(HasLine("INFO", "Service account name: Sales-Laptop7_vork_service Domainname: "));
}

TEST_F(AdPassword, AHostWhoseNamesCannotBeReadReportsASuccess) {
    ExpectError("Failed to get hostname and domainname");
    ExpectError("gethostname failed with error: 10050");
    Gate().FailNth("gethostname", 1, WSAENETDOWN);
    EXPECT_EQ(StatusOf(kOld, kNew), 0u);
    Gate().FailNth("GetComputerNameExA", 1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(StatusOf(kOld, kNew), 0u);
    EXPECT_TRUE(HasLine("ERROR", "Failed to get hostname and domainname"));
    EXPECT_TRUE(Changes().empty());
    EXPECT_EQ(Hash(), winhost::PasswordHash(kOld));
}

TEST_F(AdPassword, AFieldWithoutATerminatorEndsWithTheField) {
    const std::string longest(sizeof ADPasswordUpdate::OldPassword, 'p');
    ChangeDirectory([&](winhost::Directory& directory) {
        directory.accounts[0].passwordHash = winhost::PasswordHash(longest);
    });
    EXPECT_EQ(StatusOf(longest, std::string(sizeof ADPasswordUpdate::NewPassword, 'q')), 0u);
    EXPECT_EQ(Hash(), winhost::PasswordHash(std::string(sizeof ADPasswordUpdate::NewPassword, 'q')));
}

TEST_F(AdPassword, TheRestOfAShortRecordIsEmpty) {
    ExpectError(kFailed);
    Receive(kOld);
    EXPECT_EQ(AwaitStatus(1), 2245u);
    Receive("");
    EXPECT_EQ(AwaitStatus(2), 86u);
}

TEST_F(AdPassword, ALongRecordIsCut) {
    Receive(PasswordRecord(kOld, kNew) + std::string(100'000, 'x'));
    EXPECT_EQ(AwaitStatus(), 0u);
    EXPECT_EQ(Hash(), winhost::PasswordHash(kNew));
}

// Each byte becomes the character of its number.
TEST_F(AdPassword, BytesBeyondAsciiAreWidenedOneByOne) {
    ChangeDirectory([](winhost::Directory& directory) {
        directory.accounts[0].passwordHash = winhost::PasswordHash("p\xC3\x83\xC2\xA4ss");
    });
    EXPECT_EQ(StatusOf("p\xC3\xA4ss", kNew), 0u);
}

TEST_F(AdPassword, NoLogAndNoRecordShowsIt) {
    ExpectError(kFailed);
    EXPECT_EQ(StatusOf(kOld, kNew), 0u);
    EXPECT_EQ(StatusOf("wrong secret", "short"), 86u);
    for (const std::string& message : Messages())
        EXPECT_EQ(message.find("secret"), std::string::npos) << message;
}

TEST_F(AdPassword, ACommandDoesNotWaitForAnEarlierOne) {
    using namespace std::chrono_literals;
    ExpectError(kFailed);
    ChangeDirectory([](winhost::Directory& directory) { directory.responseMs = 5000; });
    Receive(PasswordRecord(kOld, kNew));
    Receive(PasswordRecord(kOld, kNew));
    EXPECT_TRUE(Clock().AwaitSleepersOf(5s, 2));
    Advance(5s);
    EXPECT_TRUE(firmware.AwaitCount("WritePwdUpdateStatus", 2));
    // The second one comes with the old password too late.
    EXPECT_EQ(LogCount("AD Password change successful"), 1u);
}

TEST_F(AdPassword, AThreadThatCannotBeStartedThrows) {
    Gate().FailNth("std::thread", 1, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_THROW(Receive(PasswordRecord(kOld, kNew)), std::system_error);
    EXPECT_TRUE(Changes().empty());
}

TEST_F(AdPassword, AStopOfTheServiceStartsNoWorker) {
    AwaitWorkers();
    Receive(PasswordRecord(kOld, kNew));
    EXPECT_TRUE(Changes().empty());
}

TEST_F(AdPassword, ARefusalOfTheFirmwareIsTheEnd) {
    firmware.Refuse(MailboxCode::WritePwdUpdateStatus, ERROR_GEN_FAILURE, 1);
    ExpectError("GetOverlappedResult failed for SendIOCtlToDriver with error: 31");
    ExpectError("with dwLastError = 31");
    Receive(PasswordRecord(kOld, kNew));
    AwaitWorkers();
    EXPECT_EQ(Hash(), winhost::PasswordHash(kNew));
}

TEST(AdPasswordMemory, TheContextIsWipedWhenItEnds) {
    alignas(AdPasswordContext) unsigned char memory[sizeof(AdPasswordContext)] = {};  // also the padding
    auto* context = new (memory) AdPasswordContext;
    std::memcpy(context->update.value.OldPassword, kOld, sizeof kOld);
    std::memset(context->update.value.NewPassword, 'n', sizeof context->update.value.NewPassword);
    ASSERT_FALSE(IsWiped<AdPasswordContext>(memory));
    context->~AdPasswordContext();
    EXPECT_TRUE(IsWiped<AdPasswordContext>(memory));
}

TEST(AdPasswordMemory, AWipedValueIsWipedWhole) {
    using Text = Wiped<wchar_t[129]>;
    alignas(Text) unsigned char memory[sizeof(Text)] = {};
    auto* text = new (memory) Text;
    std::fill(std::begin(text->value), std::end(text->value), L'p');
    text->~Text();
    EXPECT_TRUE(IsWiped<Text>(memory));
}
