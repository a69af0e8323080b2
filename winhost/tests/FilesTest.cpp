#include <windows.h>
#include <fileapi.h>
#include <shlobj.h>
#include <share.h>
#include <stdio.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <vector>

#include "winhost/tests/PcFixture.h"

namespace {

class FilesTest : public PcFixture {
  protected:
    std::filesystem::path Host(const std::string& name) { return m_root / "C:" / name; }
    void Write(const std::string& name, const std::string& text) { std::ofstream(Host(name)) << text; }
    std::string Read(const std::string& name) {
        std::ostringstream text;
        text << std::ifstream(Host(name)).rdbuf();
        return text.str();
    }
};

TEST_F(FilesTest, DeleteTakesAFileAway) {
    Write("a.txt", "a");
    EXPECT_TRUE(DeleteFileA(R"(C:\a.txt)"));
    EXPECT_FALSE(std::filesystem::exists(Host("a.txt")));
}

TEST_F(FilesTest, DeleteTellsAMissingFileFromAMissingFolder) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(DeleteFileA(R"(C:\a.txt)")));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOf(DeleteFileA(R"(C:\none\a.txt)")));
}

TEST_F(FilesTest, DeleteRefusesAFolder) {
    std::filesystem::create_directory(Host("folder"));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(DeleteFileA(R"(C:\folder)")));
}

TEST_F(FilesTest, MoveGivesAFileItsNewName) {
    Write("a.txt", "a");
    EXPECT_TRUE(MoveFileA(R"(C:\a.txt)", R"(C:\b.txt)"));
    EXPECT_EQ(Read("b.txt"), "a");
    EXPECT_FALSE(std::filesystem::exists(Host("a.txt")));
}

TEST_F(FilesTest, MoveNeverReplaces) {
    Write("a.txt", "a");
    Write("b.txt", "b");
    EXPECT_EQ(ERROR_ALREADY_EXISTS, ErrorOf(MoveFileA(R"(C:\a.txt)", R"(C:\b.txt)")));
    EXPECT_EQ(Read("a.txt"), "a");
    EXPECT_EQ(Read("b.txt"), "b");
}

TEST_F(FilesTest, MoveNeedsAFileAndAFolderToMoveItTo) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(MoveFileA(R"(C:\a.txt)", R"(C:\b.txt)")));
    Write("a.txt", "a");
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOf(MoveFileA(R"(C:\a.txt)", R"(C:\none\b.txt)")));
}

TEST_F(FilesTest, MoveReplacesAFileOnDemand) {
    Write("a.txt", "a");
    Write("b.txt", "b");
    EXPECT_TRUE(
        MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
    EXPECT_EQ(Read("b.txt"), "a");
    EXPECT_FALSE(std::filesystem::exists(Host("a.txt")));
}

TEST_F(FilesTest, MoveReplacesALinkAndNotWhatItLeadsTo) {
    Write("a.txt", "a");
    Write("target.txt", "t");
    std::filesystem::create_symlink(Host("target.txt"), Host("b.txt"));
    EXPECT_TRUE(MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", MOVEFILE_REPLACE_EXISTING));
    EXPECT_FALSE(std::filesystem::is_symlink(Host("b.txt")));
    EXPECT_EQ(Read("b.txt"), "a");
    EXPECT_EQ(Read("target.txt"), "t");
}

TEST_F(FilesTest, MoveReplacesOnlyOnDemand) {
    Write("a.txt", "a");
    Write("b.txt", "b");
    EXPECT_EQ(ERROR_ALREADY_EXISTS,
              ErrorOf(MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", MOVEFILE_WRITE_THROUGH)));
    EXPECT_EQ(Read("b.txt"), "b");
}

TEST_F(FilesTest, MoveGivesANewNameWhereNothingIsToReplace) {
    Write("a.txt", "a");
    EXPECT_TRUE(MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", MOVEFILE_REPLACE_EXISTING));
    EXPECT_EQ(Read("b.txt"), "a");
    EXPECT_EQ(ERROR_FILE_NOT_FOUND,
              ErrorOf(MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", MOVEFILE_REPLACE_EXISTING)));
}

TEST_F(FilesTest, MoveReplacesNeitherAFolderNorAReadOnlyFile) {
    Write("a.txt", "a");
    Write("b.txt", "b");
    std::filesystem::create_directory(Host("folder"));
    std::filesystem::permissions(Host("b.txt"), std::filesystem::perms::owner_read);
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorOf(MoveFileExA(R"(C:\a.txt)", R"(C:\folder)", MOVEFILE_REPLACE_EXISTING)));
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorOf(MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", MOVEFILE_REPLACE_EXISTING)));
    EXPECT_EQ(Read("a.txt"), "a");
}

TEST_F(FilesTest, MoveRefusesWhatItDoesNotKnow) {
    Write("a.txt", "a");
    std::filesystem::create_directory(Host("from"));
    Write("b.txt", "b");
    EXPECT_EQ(ERROR_NOT_SUPPORTED, ErrorOf(MoveFileExA(R"(C:\a.txt)", R"(C:\b.txt)", 4)));
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(MoveFileExA(R"(C:\from)", R"(C:\b.txt)", MOVEFILE_REPLACE_EXISTING)));
}

TEST_F(FilesTest, CreateDirectoryMakesAllFoldersOfThePath) {
    EXPECT_EQ(SHCreateDirectoryExA(nullptr, R"(C:\ProgramData\Tarvix\Manageability)", nullptr),
              ERROR_SUCCESS);
    EXPECT_TRUE(std::filesystem::is_directory(Host("ProgramData/Tarvix/Manageability")));
}

TEST_F(FilesTest, CreateDirectoryTellsThatItIsThere) {
    SHCreateDirectoryExA(nullptr, R"(C:\a\b)", nullptr);
    EXPECT_EQ(SHCreateDirectoryExA(nullptr, R"(C:\a\b)", nullptr), ERROR_ALREADY_EXISTS);
    EXPECT_EQ(SHCreateDirectoryExA(nullptr, R"(C:\a\b\)", nullptr), ERROR_ALREADY_EXISTS);
}

TEST_F(FilesTest, CreateDirectoryFailsWhereAFileIsInTheWay) {
    Write("a", "");
    EXPECT_EQ(SHCreateDirectoryExA(nullptr, R"(C:\a)", nullptr), ERROR_FILE_EXISTS);
    EXPECT_NE(SHCreateDirectoryExA(nullptr, R"(C:\a\b)", nullptr), ERROR_SUCCESS);
}

TEST_F(FilesTest, CreateDirectoryWantsACompletePath) {
    for (const char* path : {"", R"(\Tarvix)", "Tarvix", "C:Tarvix"})
        EXPECT_EQ(SHCreateDirectoryExA(nullptr, path, nullptr), ERROR_BAD_PATHNAME) << path;
}

class StreamTest : public FilesTest {
  protected:
    ~StreamTest() override {
        if (m_stream) fclose(m_stream);
    }
    FILE* Open(const char* mode) { return m_stream = _fsopen(R"(C:\zel.log)", mode, _SH_DENYNO); }
    FILE* m_stream = nullptr;
};

TEST_F(StreamTest, AppendsToWhatIsThere) {
    Write("zel.log", "old\n");
    ASSERT_TRUE(Open("a+"));
    fprintf(m_stream, "%s", "new\n");
    fflush(m_stream);
    EXPECT_EQ(Read("zel.log"), "old\nnew\n");
}

TEST_F(StreamTest, AppendsToWhereTheEndIsByThen) {
    ASSERT_TRUE(Open("a+"));
    fputs("1", m_stream);
    fflush(m_stream);
    std::ofstream(Host("zel.log"), std::ios::app) << "2";
    fputs("3", m_stream);
    fflush(m_stream);
    EXPECT_EQ(Read("zel.log"), "123");
}

TEST_F(StreamTest, TellsTheEndOfTheFile) {
    Write("zel.log", std::string(10'000, 'x'));
    ASSERT_TRUE(Open("a+"));
    for (long long size = 10'000; size < 10'005; ++size) {
        EXPECT_EQ(_fseeki64(m_stream, 0, SEEK_END), 0);
        EXPECT_EQ(_ftelli64(m_stream), size);
        EXPECT_EQ(ftell(m_stream), size);
        fputc('y', m_stream);
        fflush(m_stream);
    }
}

TEST_F(StreamTest, TellsTheEndThatAnotherWriterHasMoved) {
    ASSERT_TRUE(Open("a+"));
    _fseeki64(m_stream, 0, SEEK_END);
    Write("zel.log", "12345");
    _fseeki64(m_stream, 0, SEEK_END);
    EXPECT_EQ(_ftelli64(m_stream), 5);
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
    fputs("text", m_stream);
    fflush(m_stream);
    FILE* reader = _fsopen(R"(C:\zel.log)", "r", _SH_DENYNO);
    ASSERT_TRUE(reader);
    char text[8] = "";
    EXPECT_EQ(fread(text, 1, sizeof text, reader), 4u);
    fclose(reader);
}

TEST_F(StreamTest, TruncatesInModeW) {
    Write("zel.log", "old");
    ASSERT_TRUE(Open("wb"));
    fputs("n", m_stream);
    fflush(m_stream);
    EXPECT_EQ(Read("zel.log"), "n");
}

TEST_F(StreamTest, NeedsTheFileInModeR) {
    EXPECT_FALSE(Open("r"));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(StreamTest, NeedsTheFolder) {
    EXPECT_FALSE(_fsopen(R"(C:\none\zel.log)", "a+", _SH_DENYNO));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(StreamTest, RefusesToKeepOthersOut) {
    EXPECT_FALSE(_fsopen(R"(C:\zel.log)", "a+", _SH_DENYWR));
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
