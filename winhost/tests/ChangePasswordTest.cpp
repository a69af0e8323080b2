// The passwords of a directory's accounts.
#include <lm.h>

#include "winhost/pc/DescriptionJson.h"
#include "winhost/tests/PcFixture.h"

namespace {

class ChangePasswordTest : public PcFixture {
  protected:
    ChangePasswordTest() {
        StartPc([](auto& pc) {
            pc.directory.domain = "corp.example";
            winhost::DirectoryAccount account;
            account.name = "pc_vork_service";
            account.passwordHash = winhost::PasswordHash("old secret");
            pc.directory.accounts = {account};
        });
    }
    static void ChangeDirectory(const std::function<void(winhost::Directory&)>& change) {
        PcFixture::Change([&](auto& pc) { change(pc.directory); });
    }
    static NET_API_STATUS Change(const wchar_t* oldPassword, const wchar_t* newPassword,
                                 const wchar_t* user = L"pc_vork_service",
                                 const wchar_t* domain = L"CORP.EXAMPLE") {
        return NetUserChangePassword(domain, user, oldPassword, newPassword);
    }
    static std::string Hash() {
        return winhost::Pc::Instance().Get(&winhost::PcDescription::directory).accounts[0].passwordHash;
    }
};

}  // namespace

TEST_F(ChangePasswordTest, TheNewOneCountsFromThenOn) {
    EXPECT_EQ(0u, Change(L"old secret", L"new secret"));
    EXPECT_EQ(winhost::PasswordHash("new secret"), Hash());
    EXPECT_EQ(86u, Change(L"old secret", L"another one"));
    EXPECT_EQ(0u, Change(L"new secret", L"another one"));
}

TEST_F(ChangePasswordTest, NamesHaveNoCase) {
    EXPECT_EQ(0u, Change(L"old secret", L"new secret", L"PC_Vork_Service", L"Corp.Example"));
}

TEST_F(ChangePasswordTest, AWrongOldOneAndAnUnknownUserAreRefused) {
    EXPECT_EQ(86u, Change(L"Old secret", L"new secret"));
    EXPECT_EQ(2221u, Change(L"old secret", L"new secret", L"pc2_vork_service"));
    for (const wchar_t* thisPc : {L"", static_cast<const wchar_t*>(nullptr)})
        EXPECT_EQ(2221u, Change(L"old secret", L"new secret", L"pc_vork_service", thisPc))
            << "it has no accounts";
    EXPECT_EQ(winhost::PasswordHash("old secret"), Hash());
}

TEST_F(ChangePasswordTest, AShortOneIsRefused) {
    EXPECT_EQ(2245u, Change(L"old secret", L"123456"));
    EXPECT_EQ(0u, Change(L"old secret", L"1234567"));
}

TEST_F(ChangePasswordTest, ALockedAccountIsRefused) {
    ChangeDirectory([](auto& directory) { directory.accounts[0].locked = true; });
    EXPECT_EQ(1909u, Change(L"old secret", L"new secret"));
}

TEST_F(ChangePasswordTest, WithoutADomainControllerNothingChanges) {
    EXPECT_EQ(1351u, Change(L"old secret", L"new secret", L"pc_vork_service", L"OTHER.EXAMPLE"));
    ChangeDirectory([](auto& directory) { directory.reachable = false; });
    EXPECT_EQ(1351u, Change(L"old secret", L"new secret"));
    EXPECT_EQ(winhost::PasswordHash("old secret"), Hash());
}

TEST_F(ChangePasswordTest, TheControllerTakesItsTime) {
    const ManualTime time;
    ChangeDirectory([](auto& directory) { directory.responseMs = 5000; });
    std::thread caller([] { EXPECT_EQ(0u, Change(L"old secret", L"new secret")); });
    EXPECT_TRUE(Clock().AwaitSleeper(std::chrono::seconds(5)));
    EXPECT_EQ(winhost::PasswordHash("old secret"), Hash());
    Clock().Advance(std::chrono::seconds(5));
    caller.join();
    EXPECT_EQ(winhost::PasswordHash("new secret"), Hash());
}

TEST_F(ChangePasswordTest, TheResultIsNoLastError) {
    SetLastError(4711);
    EXPECT_EQ(86u, Change(L"wrong", L"new secret"));
    EXPECT_EQ(4711u, GetLastError());
    EXPECT_EQ(87u, NetUserChangePassword(L"CORP.EXAMPLE", nullptr, L"a", L"b"));
    EXPECT_EQ(87u, NetUserChangePassword(L"CORP.EXAMPLE", L"pc_vork_service", nullptr, L"b"));
    EXPECT_EQ(87u, NetUserChangePassword(L"CORP.EXAMPLE", L"pc_vork_service", L"a", nullptr));
}

TEST_F(ChangePasswordTest, NoRecordShowsAPassword) {
    EXPECT_EQ(0u, Change(L"old secret", L"new secret"));
    const auto changes = Records<winhost::PasswordChange>();
    ASSERT_EQ(1u, changes.size());
    EXPECT_EQ("CORP.EXAMPLE", changes[0].domain);
    EXPECT_EQ("pc_vork_service", changes[0].user);
    EXPECT_EQ(0u, changes[0].result);
    const std::string description = winhost::DescriptionToJson(Description()).toStyledString();
    EXPECT_NE(std::string::npos, description.find(winhost::PasswordHash("new secret")));
    EXPECT_EQ(std::string::npos, description.find("secret\""));
}

// As "printf %s PASSWORD | sha256sum" prints it.
TEST_F(ChangePasswordTest, TheHashIsThatOfOtherPrograms) {
    EXPECT_EQ("4104d36f8da2c254349f85836793ebe029e0c957063a34c91c2e9203187b5631",
              winhost::PasswordHash("correct horse"));
}
