// The environment that a token's programs begin with.
#include <userenv.h>

#include "winhost/tests/LaunchFixture.h"

namespace {

class EnvironmentBlock : public LaunchFixture {
  protected:
    // The block's texts, behind one another as they lie there.
    static std::wstring BlockOf(HANDLE token) {
        void* block = nullptr;
        EXPECT_TRUE(CreateEnvironmentBlock(&block, token, FALSE));
        const wchar_t* const begin = static_cast<const wchar_t*>(block);
        const wchar_t* end = begin;
        while (end[0] || end[1])
            ++end;
        const std::wstring texts(begin, end + 2);
        EXPECT_TRUE(DestroyEnvironmentBlock(block));
        return texts;
    }
};

template <size_t Size>
std::wstring Literal(const wchar_t (&text)[Size]) {
    return {text, Size - 1};
}

TEST_F(EnvironmentBlock, IsThePcsSortedWithoutRegardToCase) {
    StartPc([](auto& pc) {
        pc.environment = {{"Zeta", "1"}, {"alpha", "2"}, {"ALPHA_2", "=x"}, {"Beta", ""}};
    });
    EXPECT_EQ(Literal(L"alpha=2\0ALPHA_2==x\0Beta=\0Zeta=1\0\0"), BlockOf(nullptr));
}

TEST_F(EnvironmentBlock, IsUnicode) {
    StartPc([](auto& pc) { pc.environment = {{"A", "Größe €"}}; });
    EXPECT_EQ(Literal(L"A=Größe €\0\0"), BlockOf(nullptr));
}

TEST_F(EnvironmentBlock, OfAnEmptyEnvironmentIsTwoNuls) {
    EXPECT_EQ(Literal(L"\0\0"), BlockOf(nullptr));
}

TEST_F(EnvironmentBlock, NeedsATokenThatMayBeAsked) {
    void* block = nullptr;
    HANDLE token = LogonToken(TOKEN_QUERY);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(CreateEnvironmentBlock(&block, token, FALSE)));
    CloseHandle(token);
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(CreateEnvironmentBlock(&block, token, FALSE)));
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(CreateEnvironmentBlock(nullptr, nullptr, FALSE)));
    EXPECT_FALSE(block);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, ErrorOf(DestroyEnvironmentBlock(nullptr)));
}

TEST_F(EnvironmentBlock, GoesToTheProgram) {
    StartPc([](auto& pc) { pc.environment = {{"PROGRAMDATA", R"(C:\ProgramData)"}}; });
    WriteScript("app.exe", R"(printf %s "$PROGRAMDATA" > C:/value)");
    const HANDLE token = Keep(LogonToken());
    void* block = nullptr;
    ASSERT_TRUE(CreateEnvironmentBlock(&block, token, FALSE));
    Run(R"("C:\app.exe")", kFlags, block);
    EXPECT_TRUE(DestroyEnvironmentBlock(block));
    EXPECT_EQ(R"(C:\ProgramData)", ReadFromC("value"));
    EXPECT_TRUE(Records<winhost::ProcessLaunch>().back().environment);
}

}  // namespace
