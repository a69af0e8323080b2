// Programs started by CreateProcessA: which, with what arguments, and where they belong.
#include "winhost/tests/LaunchFixture.h"

namespace {

class PlainProcessTest : public LaunchFixture {
  protected:
    static Started StartPlain(const char* application, const std::string& command, DWORD flags = 0,
                              DWORD startupFlags = 0) {
        std::string line = command;
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        startup.dwFlags = startupFlags;
        Started started;
        SetLastError(0);
        started.result =
            CreateProcessA(application, command.empty() ? nullptr : line.data(), nullptr, nullptr, FALSE,
                           flags, nullptr, nullptr, &startup, &started.information);
        started.error = GetLastError();
        return started;
    }
    static void RunPlain(const char* application, const std::string& command) {
        const Started started = StartPlain(application, command);
        ASSERT_TRUE(started.result) << command << ": error " << started.error;
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(started.information.hProcess, INFINITE));
    }
};

}  // namespace

TEST_F(PlainProcessTest, AnApplicationRunsWithoutArguments) {
    WriteScript("Data/app.exe", R"(echo "$# $0" > C:/arguments)");
    RunPlain(R"(C:\Data\app.exe)", "");
    EXPECT_EQ("0 ", ReadFromC("arguments").substr(0, 2));
}

TEST_F(PlainProcessTest, ACommandLineWithoutQuotesIsSplitAtItsBlanks) {
    WriteScript("Data/app.exe", R"(printf '%s\n' "$@" > C:/arguments)");
    RunPlain(nullptr, R"(C:\Data\app.exe GetBootMode "two words")");
    EXPECT_EQ("GetBootMode\ntwo words\n", ReadFromC("arguments"));
    RunPlain(nullptr, R"("C:\Data\app.exe" quoted)");
    EXPECT_EQ("quoted\n", ReadFromC("arguments"));
}

// So that a file C:\Program.exe takes the place of one in C:\Program Data, as on Windows.
TEST_F(PlainProcessTest, TheShortestPartOfTheLineThatNamesAFileIsTheProgram) {
    WriteScript("Program Data/app.exe", "echo long > C:/who");
    RunPlain(nullptr, R"(C:\Program Data\app.exe x)");
    EXPECT_EQ("long\n", ReadFromC("who"));
    WriteScript("Program.exe", R"(printf 'short %s\n' "$1" > C:/who)");
    RunPlain(nullptr, R"(C:\Program Data\app.exe x)");
    EXPECT_EQ("short Data\\app.exe\n", ReadFromC("who"));
}

TEST_F(PlainProcessTest, ANameWithoutAFolderIsSearchedForInTheFoldersOfPrograms) {
    StartPc([](auto& pc) {
        pc.modulePath = R"(C:\Service\service.exe)";
        pc.environment["PATH"] = R"(C:\Tools\;C:\Windows)";
    });
    WriteScript("Tools/app.exe", R"(echo "tools $*" > C:/who)");
    RunPlain(nullptr, "app.exe one two");
    EXPECT_EQ("tools one two\n", ReadFromC("who"));
    WriteScript("Windows/System32/App.exe", "echo system > C:/who");
    RunPlain(nullptr, "app -x");
    EXPECT_EQ("system\n", ReadFromC("who"));
    WriteScript("Service/app.exe", "echo own > C:/who");
    RunPlain(nullptr, "app.exe");
    EXPECT_EQ("own\n", ReadFromC("who"));
}

TEST_F(PlainProcessTest, ItIsAProcessOfThePcInTheCallersSession) {
    StartPc([](auto& pc) { pc.environment["PROGRAMDATA"] = R"(C:\ProgramData)"; });
    WriteScript("app.exe",
                R"(printf '%s\n' "$WINHOST_SESSION $WINHOST_MODULE $PROGRAMDATA" > C:/environment)");
    RunPlain(R"(C:\app.exe)", "");
    EXPECT_EQ("0 C:\\app.exe C:\\ProgramData\n", ReadFromC("environment"));
    const auto launches = Records<winhost::ProcessLaunch>();
    ASSERT_EQ(1u, launches.size());
    EXPECT_EQ(R"("C:\app.exe")", launches[0].commandLine);
    EXPECT_EQ(0u, launches[0].session);
}

TEST_F(PlainProcessTest, ADetachedOneMayBeOfferedHandles) {
    WriteScript("app.exe", "ls -l /proc/self/fd > C:/files");
    char line[] = R"(C:\app.exe)";
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    startup.wShowWindow = SW_SHOW;
    Started started;
    started.result = CreateProcessA(nullptr, line, nullptr, nullptr, TRUE, DETACHED_PROCESS, nullptr, nullptr,
                                    &startup, &started.information);
    ASSERT_TRUE(started.result);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(started.information.hProcess, INFINITE));
    EXPECT_EQ(std::string::npos, ReadFromC("files").find("socket")) << ReadFromC("files");
    const auto& pc = winhost::Pc::Instance();
    ASSERT_EQ(1u, pc.Records<winhost::ProcessLaunch>().size());
    EXPECT_EQ(DWORD{DETACHED_PROCESS}, pc.Records<winhost::ProcessLaunch>()[0].flags);
    const auto arguments = pc.Records<winhost::CallArgument>();
    ASSERT_EQ(2u, arguments.size());
    EXPECT_EQ("bInheritHandles", arguments[0].name);
    EXPECT_EQ(1u, arguments[0].value);
    EXPECT_EQ("wShowWindow", arguments[1].name);
    EXPECT_EQ(uint32_t{SW_SHOW}, arguments[1].value);
}

TEST_F(PlainProcessTest, ItsHandleIsSignalledWhenItEnds) {
    WriteSleeper("sleep.exe");
    const Started started = StartPlain(nullptr, R"(C:\sleep.exe 1000)");
    ASSERT_TRUE(started.result);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(started.information.hProcess, 0));
    End(started.information.hProcess);
}

TEST_F(PlainProcessTest, WhatCannotBeStartedIsRefused) {
    WriteScript("app.exe", "true");
    Write("text.exe", "not a program");
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, StartPlain(R"(C:\none.exe)", "").error);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, StartPlain(nullptr, R"(C:\none.exe x)").error);
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, StartPlain(R"(C:\nowhere\none.exe)", "").error);
    EXPECT_EQ(ERROR_BAD_EXE_FORMAT, StartPlain(R"(C:\text.exe)", "").error);
    EXPECT_EQ(ERROR_INVALID_PARAMETER, StartPlain(nullptr, "").error);
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, StartPlain(nullptr, "app.exe x").error) << "in no folder of programs";
    EXPECT_EQ(ERROR_NOT_SUPPORTED, StartPlain("app.exe", "").error);
    EXPECT_EQ(ERROR_NOT_SUPPORTED, StartPlain(R"(C:\app.exe)", "", CREATE_SUSPENDED).error);
    EXPECT_EQ(ERROR_NOT_SUPPORTED, StartPlain(R"(C:\app.exe)", "", 0, STARTF_USESTDHANDLES).error);
}
