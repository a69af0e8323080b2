// Copies of files, and what keeps a file from being overwritten or deleted.
#include <optional>

#include "winhost/files/FileSecurity.h"
#include "winhost/tests/LaunchFixture.h"

namespace {

using std::filesystem::perms;

constexpr DWORD kAsIs = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;

class CopyFileTest : public LaunchFixture {
  protected:
    static long ErrorOfCopy(const std::string& from, const std::string& to, bool failIfExists = false) {
        return ErrorOf(CopyFileA((R"(C:\)" + from).c_str(), (R"(C:\)" + to).c_str(), failIfExists));
    }
    static DWORD AttributesOf(const char* path) {
        const HANDLE file =
            CreateFileA(path, FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING, kAsIs, nullptr);
        BY_HANDLE_FILE_INFORMATION information{};
        EXPECT_TRUE(GetFileInformationByHandle(file, &information));
        CloseHandle(file);
        return information.dwFileAttributes;
    }
    void MakeReadOnly(const std::string& name) const {
        std::filesystem::permissions(OnC(name), perms::owner_read | perms::owner_exec);
    }
    // Runs until the test ends, from C:\<name>.
    void RunScript(const std::string& name) {
        WriteScript(name, "sleep 100");
        m_running.emplace(Start("\"C:\\" + name + "\""));
        ASSERT_TRUE(m_running->result);
    }
    std::optional<Started> m_running;
};

TEST_F(CopyFileTest, TheCopyHasTheBytesOfItsSource) {
    const std::string bytes(200'000, 'x');
    Write("a", bytes);
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "b"));
    EXPECT_EQ(bytes, ReadFromC("b"));
    EXPECT_EQ(bytes, ReadFromC("a"));
}

TEST_F(CopyFileTest, ATargetIsKeptWhenAskedForAndElseReplacedWhole) {
    Write("a", "new");
    Write("b", "the old one");
    EXPECT_EQ(ERROR_FILE_EXISTS, ErrorOfCopy("a", "b", true));
    EXPECT_EQ("the old one", ReadFromC("b"));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "b"));
    EXPECT_EQ("new", ReadFromC("b"));
}

TEST_F(CopyFileTest, WhatIsMissingAFolderAndTheFileItselfAreRefused) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfCopy("a", "b"));
    Write("a", "text");
    std::filesystem::create_directory(OnC("folder"));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOfCopy("none/a", "b"));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOfCopy("a", "none/b"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfCopy("a", "folder"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfCopy("folder", "b"));
    EXPECT_EQ(ERROR_SHARING_VIOLATION, ErrorOfCopy("a", "a"));
    EXPECT_EQ("text", ReadFromC("a"));
}

TEST_F(CopyFileTest, LinksAreFollowedAtBothEnds) {
    Write("a", "text");
    Write("victim", "old");
    std::filesystem::create_symlink(OnC("a"), OnC("from"));
    std::filesystem::create_symlink(OnC("victim"), OnC("to"));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("from", "to"));
    EXPECT_EQ("text", ReadFromC("victim"));
    EXPECT_TRUE(std::filesystem::is_symlink(OnC("to")));
}

TEST_F(CopyFileTest, AReadOnlyTargetIsRefused) {
    Write("a", "new");
    Write("b", "old");
    MakeReadOnly("b");
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfCopy("a", "b"));
    EXPECT_EQ("old", ReadFromC("b"));
}

TEST_F(CopyFileTest, ACopyOfAReadOnlyFileIsReadOnly) {
    Write("a", "text");
    EXPECT_FALSE(AttributesOf(R"(C:\a)") & FILE_ATTRIBUTE_READONLY);
    MakeReadOnly("a");
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "b"));
    EXPECT_TRUE(AttributesOf(R"(C:\b)") & FILE_ATTRIBUTE_READONLY);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(DeleteFileA(R"(C:\b)")));
    EXPECT_EQ("text", ReadFromC("b"));
}

TEST_F(CopyFileTest, ACopyOfAProgramCanBeRun) {
    WriteScript("a.exe", "exit 0");
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a.exe", "b.exe"));
    Run(R"("C:\b.exe")");
}

TEST_F(CopyFileTest, TheFileOfAProgramThatRunsIsNeitherOverwrittenNorDeleted) {
    Write("a", "new");
    RunScript("app.exe");
    const std::string script = ReadFromC("app.exe");
    EXPECT_EQ(ERROR_SHARING_VIOLATION, ErrorOfCopy("a", "app.exe"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(DeleteFileA(R"(C:\app.exe)")));
    EXPECT_EQ(script, ReadFromC("app.exe"));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("app.exe", "b")) << "it can be read";
    End(m_running->information.hProcess);
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "app.exe"));
}

TEST_F(CopyFileTest, ACopyBelongsToItsUserAndInheritsTheRightsOfItsFolder) {
    Write("a", "text");
    SetUser("alice");
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "b"));
    EXPECT_EQ(winhost::SidOfUser("alice"), winhost::SecurityOf(OnC("b").string()).owner);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfCopy("b", "a")) << "the file of the system";
    EXPECT_EQ("text", ReadFromC("a"));
}

TEST_F(CopyFileTest, ATargetKeepsItsOwner) {
    Write("a", "text");
    SetUser("alice");
    ASSERT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "b"));
    SetUser("SYSTEM");
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfCopy("a", "b"));
    EXPECT_EQ(winhost::SidOfUser("alice"), winhost::SecurityOf(OnC("b").string()).owner);
}

}  // namespace
