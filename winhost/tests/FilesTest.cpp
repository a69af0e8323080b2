#include <fileapi.h>
#include <shlobj.h>
#include <share.h>
#include <stdio.h>

#include <cerrno>
#include <optional>

#include "winhost/tests/PcFixture.h"

namespace {

class FilesTest : public PcFixture {
  protected:
    // With MoveFileA when there are no flags.
    static long ErrorOfMove(const char* from, const char* to, std::optional<DWORD> flags = {}) {
        return ErrorOf(flags ? MoveFileExA(from, to, *flags) : MoveFileA(from, to));
    }
    static int CreateFolders(const char* path) { return SHCreateDirectoryExA(nullptr, path, nullptr); }

    static constexpr DWORD kReplace = MOVEFILE_REPLACE_EXISTING;
};

TEST_F(FilesTest, DeleteTakesAFileAwayAndNothingElse) {
    Write("a.txt", "a");
    std::filesystem::create_directory(OnC("folder"));
    EXPECT_TRUE(DeleteFileA(R"(C:\a.txt)"));
    EXPECT_FALSE(std::filesystem::exists(OnC("a.txt")));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(DeleteFileA(R"(C:\a.txt)")));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOf(DeleteFileA(R"(C:\none\a.txt)")));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(DeleteFileA(R"(C:\folder)")));
}

TEST_F(FilesTest, MoveGivesAFileItsNewName) {
    for (const std::optional<DWORD> flags : {std::optional<DWORD>(), {kReplace}}) {
        SCOPED_TRACE(flags.value_or(0));
        EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", flags));
        Write("a.txt", "a");
        EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOfMove(R"(C:\a.txt)", R"(C:\none\b.txt)", flags));
        EXPECT_EQ(ERROR_SUCCESS, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", flags));
        EXPECT_EQ(ReadFromC("b.txt"), "a");
        EXPECT_FALSE(std::filesystem::exists(OnC("a.txt")));
        std::filesystem::remove(OnC("b.txt"));
    }
}

TEST_F(FilesTest, MoveReplacesAFileOnlyOnDemand) {
    Write("a.txt", "a");
    Write("b.txt", "b");
    for (const std::optional<DWORD> flags : {std::optional<DWORD>(), {MOVEFILE_WRITE_THROUGH}}) {
        SCOPED_TRACE(flags.value_or(0));
        EXPECT_EQ(ERROR_ALREADY_EXISTS, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", flags));
        EXPECT_EQ(ReadFromC("a.txt"), "a");
        EXPECT_EQ(ReadFromC("b.txt"), "b");
    }
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", kReplace | MOVEFILE_WRITE_THROUGH));
    EXPECT_EQ(ReadFromC("b.txt"), "a");
    EXPECT_FALSE(std::filesystem::exists(OnC("a.txt")));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", kReplace));
}

TEST_F(FilesTest, MoveReplacesALinkAndNotWhatItLeadsTo) {
    Write("a.txt", "a");
    Write("target.txt", "t");
    std::filesystem::create_symlink(OnC("target.txt"), OnC("b.txt"));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", kReplace));
    EXPECT_FALSE(std::filesystem::is_symlink(OnC("b.txt")));
    EXPECT_EQ(ReadFromC("b.txt"), "a");
    EXPECT_EQ(ReadFromC("target.txt"), "t");
}

TEST_F(FilesTest, MoveRefusesFoldersReadOnlyFilesAndUnknownFlags) {
    Write("a.txt", "a");
    Write("b.txt", "b");
    std::filesystem::create_directory(OnC("folder"));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", 4));
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOfMove(R"(C:\folder)", R"(C:\b.txt)", kReplace));
    std::filesystem::permissions(OnC("b.txt"), std::filesystem::perms::owner_read);
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfMove(R"(C:\a.txt)", R"(C:\folder)", kReplace));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfMove(R"(C:\a.txt)", R"(C:\b.txt)", kReplace));
    EXPECT_EQ(ReadFromC("a.txt"), "a");
}

TEST_F(FilesTest, CreateDirectoryMakesAllFoldersOfThePathOnce) {
    EXPECT_EQ(CreateFolders(R"(C:\ProgramData\Tarvix\Manageability)"), ERROR_SUCCESS);
    EXPECT_TRUE(std::filesystem::is_directory(OnC("ProgramData/Tarvix/Manageability")));
    EXPECT_EQ(CreateFolders(R"(C:\ProgramData\Tarvix)"), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(CreateFolders(R"(C:\ProgramData\Tarvix\)"), ERROR_ALREADY_EXISTS);
}

TEST_F(FilesTest, CreateDirectoryNeedsACompletePathWithoutAFileInTheWay) {
    Write("a", "");
    EXPECT_EQ(CreateFolders(R"(C:\a)"), ERROR_FILE_EXISTS);
    EXPECT_NE(CreateFolders(R"(C:\a\b)"), ERROR_SUCCESS);
    for (const char* path : {"", R"(\Tarvix)", "Tarvix", "C:Tarvix"})
        EXPECT_EQ(CreateFolders(path), ERROR_BAD_PATHNAME) << path;
}

class StreamTest : public FilesTest {
  protected:
    ~StreamTest() override {
        if (m_stream) fclose(m_stream);
    }
    FILE* Open(const char* mode) { return m_stream = _fsopen(R"(C:\zel.log)", mode, _SH_DENYNO); }
    void Put(const char* text) {
        fputs(text, m_stream);
        fflush(m_stream);
    }
    // Of the file, as the stream sees it.
    long long End() {
        EXPECT_EQ(_fseeki64(m_stream, 0, SEEK_END), 0);
        return _ftelli64(m_stream);
    }
    FILE* m_stream = nullptr;
};

TEST_F(StreamTest, AppendsToWhereTheEndIsByThen) {
    Write("zel.log", "old\n");
    ASSERT_TRUE(Open("a+"));
    Put("1");
    EXPECT_EQ(ReadFromC("zel.log"), "old\n1");
    std::ofstream(OnC("zel.log"), std::ios::app) << "2";
    Put("3");
    EXPECT_EQ(ReadFromC("zel.log"), "old\n123");
}

TEST_F(StreamTest, TellsTheEndOfTheFileAlsoWhenAnotherWriterHasMovedIt) {
    Write("zel.log", std::string(10'000, 'x'));
    ASSERT_TRUE(Open("a+"));
    for (long long size = 10'000; size < 10'005; ++size) {
        EXPECT_EQ(End(), size);
        EXPECT_EQ(ftell(m_stream), size);
        Put("y");
    }
    Write("zel.log", "12345");
    EXPECT_EQ(End(), 5);
}

TEST_F(StreamTest, TellsWhereUnflushedTextWillEnd) {
    ASSERT_TRUE(Open("w"));
    fputs("12345", m_stream);
    EXPECT_EQ(_ftelli64(m_stream), 5);
}

TEST_F(StreamTest, TellsWhereAppendedTextWillEnd) {
    Write("zel.log", "old\n");
    ASSERT_TRUE(Open("a+"));
    fputs("12345", m_stream);
    EXPECT_EQ(_ftelli64(m_stream), 9);
    fflush(m_stream);
    EXPECT_EQ(_ftelli64(m_stream), 9);
    EXPECT_EQ(_fseeki64(m_stream, 2, SEEK_SET), 0);
    EXPECT_EQ(_ftelli64(m_stream), 2);
}

TEST_F(StreamTest, AreAtMost64AtATime) {
    std::vector<FILE*> streams;
    while (FILE* stream = _fsopen(R"(C:\zel.log)", "a", _SH_DENYNO))
        streams.push_back(stream);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(streams.size(), 64u);
    fclose(streams.back());
    EXPECT_TRUE(streams.back() = _fsopen(R"(C:\zel.log)", "a", _SH_DENYNO));
    for (FILE* stream : streams)
        fclose(stream);
}

TEST_F(StreamTest, ReadsBackWhatItWrote) {
    ASSERT_TRUE(Open("w+"));
    fputs("first\nsecond\n", m_stream);
    _fseeki64(m_stream, 6, SEEK_SET);
    char line[16] = "";
    EXPECT_TRUE(fgets(line, sizeof line, m_stream));
    EXPECT_STREQ(line, "second\n");
    EXPECT_EQ(_ftelli64(m_stream), 13);
}

TEST_F(StreamTest, StaysOpenForOthers) {
    ASSERT_TRUE(Open("a+"));
    Put("text");
    FILE* reader = _fsopen(R"(C:\zel.log)", "r", _SH_DENYNO);
    ASSERT_TRUE(reader);
    char text[8] = "";
    EXPECT_EQ(fread(text, 1, sizeof text, reader), 4u);
    fclose(reader);
}

TEST_F(StreamTest, TruncatesInModeW) {
    Write("zel.log", "old");
    ASSERT_TRUE(Open("wb"));
    Put("n");
    EXPECT_EQ(ReadFromC("zel.log"), "n");
}

TEST_F(StreamTest, NeedsTheFileInModeRAndTheFolderAndKeepsNoOthersOut) {
    EXPECT_FALSE(Open("r"));
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_FALSE(_fsopen(R"(C:\none\zel.log)", "a+", _SH_DENYNO));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(_fsopen(R"(C:\zel.log)", "a+", _SH_DENYWR));
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
