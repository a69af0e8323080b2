// Owners and rights of files and folders, as the system and as another user of the PC.
#include <shlobj.h>

#include "winhost/files/FileSecurity.h"
#include "winhost/tests/PcFixture.h"

namespace {

using winhost::FileSecurity;

constexpr DWORD kAsItIs = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;
constexpr SECURITY_INFORMATION kBoth = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

class FileSecurityTest : public PcFixture {
  protected:
    static HANDLE Open(const char* path, DWORD access, DWORD disposition = OPEN_EXISTING) {
        return CreateFileA(path, access, FILE_SHARE_READ, nullptr, disposition, kAsItIs, nullptr);
    }
    static long ErrorOfOpen(const char* path, DWORD access, DWORD disposition = OPEN_EXISTING) {
        const HANDLE file = Open(path, access, disposition);
        if (file == INVALID_HANDLE_VALUE) return GetLastError();
        CloseHandle(file);
        return ERROR_SUCCESS;
    }
    static FileSecurity SecurityOf(const char* path) {
        char bytes[1024];
        DWORD size = 0;
        FileSecurity security;
        const HANDLE file = Open(path, READ_CONTROL);
        EXPECT_TRUE(GetKernelObjectSecurity(file, kBoth, bytes, sizeof bytes, &size));
        EXPECT_TRUE(winhost::ParseSecurity(bytes, security));
        CloseHandle(file);
        return security;
    }
    // The system has all rights and alice those, to be inherited.
    static FileSecurity With(DWORD rightsOfAlice) {
        constexpr BYTE kToAll = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
        return {winhost::DefaultOwner("SYSTEM"),
                true,
                {{ACCESS_ALLOWED_ACE_TYPE, kToAll, FILE_ALL_ACCESS, winhost::SidOfUser("SYSTEM")},
                 {ACCESS_ALLOWED_ACE_TYPE, kToAll, rightsOfAlice, winhost::SidOfUser("alice")}}};
    }
    static int CreateFolder(const char* path, const FileSecurity& security) {
        std::string bytes = security.Bytes();
        const SECURITY_ATTRIBUTES attributes{sizeof attributes, bytes.data(), FALSE};
        return SHCreateDirectoryExA(nullptr, path, &attributes);
    }
    static BY_HANDLE_FILE_INFORMATION InformationOf(const char* path) {
        BY_HANDLE_FILE_INFORMATION information{};
        const HANDLE file = Open(path, FILE_READ_ATTRIBUTES);
        EXPECT_TRUE(GetFileInformationByHandle(file, &information));
        CloseHandle(file);
        return information;
    }
};

TEST_F(FileSecurityTest, EveryUserMayCreateFilesInAFolderThatInheritsItsRights) {
    SHCreateDirectoryExA(nullptr, R"(C:\folder)", nullptr);
    SetUser("alice");
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfOpen(R"(C:\folder\a.txt)", GENERIC_READ, OPEN_ALWAYS));
    EXPECT_EQ(winhost::SidOfUser("alice"), SecurityOf(R"(C:\folder\a.txt)").owner);
    EXPECT_EQ(ERROR_SUCCESS, ErrorOf(DeleteFileA(R"(C:\folder\a.txt)")));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(RemoveDirectoryA(R"(C:\folder)")));
}

TEST_F(FileSecurityTest, AFolderHasTheListThatItIsCreatedWithAndItsFilesInheritIt) {
    EXPECT_EQ(ERROR_SUCCESS, CreateFolder(R"(C:\folder)", With(FILE_GENERIC_READ)));
    Write("folder/a.txt", "text");
    EXPECT_TRUE(SecurityOf(R"(C:\folder)").isProtected);
    SetUser("alice");
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfOpen(R"(C:\folder\b.txt)", GENERIC_READ, OPEN_ALWAYS));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfOpen(R"(C:\folder\a.txt)", GENERIC_WRITE));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfOpen(R"(C:\folder\a.txt)", GENERIC_READ));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(DeleteFileA(R"(C:\folder\a.txt)")));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(MoveFileA(R"(C:\folder)", R"(C:\other)")));
    EXPECT_EQ(ERROR_ACCESS_DENIED, SHCreateDirectoryExA(nullptr, R"(C:\folder\sub)", nullptr));
    EXPECT_FALSE(_fsopen(R"(C:\folder\b.txt)", "a+", 0x40));
    EXPECT_EQ(EACCES, errno);
}

TEST_F(FileSecurityTest, WhoMayDeleteInAFolderMayRenameWhatKeepsHimOut) {
    SetUser("alice");
    FileSecurity own = With(FILE_ALL_ACCESS);
    own.entries.erase(own.entries.begin());
    own.owner = winhost::SidOfUser("alice");
    EXPECT_EQ(ERROR_SUCCESS, CreateFolder(R"(C:\folder)", own));
    SetUser("SYSTEM");
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfOpen(R"(C:\folder)", READ_CONTROL));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOf(MoveFileA(R"(C:\folder)", R"(C:\other)")));
}

TEST_F(FileSecurityTest, AUserCannotCreateForAnother) {
    SetUser("alice");
    EXPECT_EQ(ERROR_INVALID_OWNER, CreateFolder(R"(C:\folder)", With(FILE_ALL_ACCESS)));
    EXPECT_FALSE(std::filesystem::exists(OnC("folder")));
}

TEST_F(FileSecurityTest, AListIsReplacedByItsHandleAndReachesThisFolderAlone) {
    CreateFolder(R"(C:\folder)", With(FILE_ALL_ACCESS));
    SetUser("alice");
    ErrorOfOpen(R"(C:\folder\a.txt)", GENERIC_READ, OPEN_ALWAYS);
    SetUser("SYSTEM");
    const HANDLE folder = Open(R"(C:\folder)", WRITE_DAC);
    std::filesystem::rename(OnC("folder"), OnC("moved"));
    std::string bytes = With(FILE_GENERIC_READ).Bytes();
    EXPECT_TRUE(SetKernelObjectSecurity(
        folder, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, bytes.data()));
    CloseHandle(folder);
    SetUser("alice");
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOfOpen(R"(C:\moved\b.txt)", GENERIC_READ, OPEN_ALWAYS));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfOpen(R"(C:\moved\a.txt)", GENERIC_WRITE));
}

TEST_F(FileSecurityTest, TheHandleNeedsTheRight) {
    Write("a.txt", "text");
    std::string bytes = With(FILE_GENERIC_READ).Bytes();
    DWORD size = 0;
    const HANDLE file = Keep(Open(R"(C:\a.txt)", FILE_READ_ATTRIBUTES));
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorOf(GetKernelObjectSecurity(file, kBoth, bytes.data(), DWORD(bytes.size()), &size)));
    for (const SECURITY_INFORMATION part : {OWNER_SECURITY_INFORMATION, DACL_SECURITY_INFORMATION})
        EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(SetKernelObjectSecurity(file, part, bytes.data())));
}

TEST_F(FileSecurityTest, AShortBufferIsToldTheSizeThatItNeeds) {
    Write("a.txt", "text");
    const HANDLE file = Keep(Open(R"(C:\a.txt)", READ_CONTROL));
    char bytes[1024];
    DWORD size = 0;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(GetKernelObjectSecurity(file, kBoth, bytes, 4, &size)));
    EXPECT_TRUE(GetKernelObjectSecurity(file, kBoth, bytes, size, &size));
}

TEST_F(FileSecurityTest, AnOwnerHasToBeOnesOwn) {
    Write("a.txt", "text");
    FileSecurity foreign = With(FILE_GENERIC_READ);
    foreign.owner = winhost::SidOfUser("alice");
    std::string bytes = foreign.Bytes();
    const HANDLE file = Keep(Open(R"(C:\a.txt)", WRITE_OWNER));
    EXPECT_EQ(ERROR_INVALID_OWNER,
              ErrorOf(SetKernelObjectSecurity(file, OWNER_SECURITY_INFORMATION, bytes.data())));
}

TEST_F(FileSecurityTest, OtherObjectsAreRefused) {
    const HANDLE event = NewEvent();
    BY_HANDLE_FILE_INFORMATION information;
    DWORD size = 0;
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(GetFileInformationByHandle(event, &information)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(GetKernelObjectSecurity(event, kBoth, nullptr, 0, &size)));
    EXPECT_EQ(ERROR_INVALID_HANDLE, ErrorOf(SetKernelObjectSecurity(event, kBoth, nullptr)));
}

TEST_F(FileSecurityTest, AFileIsToldFromAFolderAndFromALink) {
    Write("a.txt", "text");
    std::filesystem::create_directories(OnC("folder/sub"));
    std::filesystem::create_symlink(OnC("a.txt"), OnC("link"));
    std::filesystem::create_symlink(OnC("none"), OnC("dangling"));
    std::filesystem::create_symlink(OnC("folder"), OnC("junction"));
    std::filesystem::create_hard_link(OnC("a.txt"), OnC("second"));
    const auto file = InformationOf(R"(C:\a.txt)");
    EXPECT_EQ(DWORD{FILE_ATTRIBUTE_ARCHIVE}, file.dwFileAttributes);
    EXPECT_EQ(DWORD{2}, file.nNumberOfLinks);
    EXPECT_EQ(DWORD{4}, file.nFileSizeLow);
    EXPECT_EQ(file.nFileIndexLow, InformationOf(R"(C:\second)").nFileIndexLow);
    const auto folder = InformationOf(R"(C:\folder)");
    EXPECT_EQ(DWORD{FILE_ATTRIBUTE_DIRECTORY}, folder.dwFileAttributes);
    EXPECT_EQ(DWORD{1}, folder.nNumberOfLinks);
    EXPECT_EQ(DWORD{FILE_ATTRIBUTE_REPARSE_POINT}, InformationOf(R"(C:\link)").dwFileAttributes);
    EXPECT_EQ(DWORD{FILE_ATTRIBUTE_REPARSE_POINT}, InformationOf(R"(C:\dangling)").dwFileAttributes);
    EXPECT_EQ(DWORD{FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY},
              InformationOf(R"(C:\junction)").dwFileAttributes);
}

TEST_F(FileSecurityTest, OpenAlwaysCreatesAFileAndNothingBehindALink) {
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOfOpen(R"(C:\a.txt)", GENERIC_READ));
    EXPECT_EQ(ERROR_PATH_NOT_FOUND, ErrorOfOpen(R"(C:\none\a.txt)", GENERIC_READ, OPEN_ALWAYS));
    CloseHandle(Open(R"(C:\a.txt)", GENERIC_READ, OPEN_ALWAYS));
    EXPECT_EQ(ERROR_SUCCESS, GetLastError());
    EXPECT_TRUE(std::filesystem::exists(OnC("a.txt")));
    CloseHandle(Open(R"(C:\a.txt)", GENERIC_READ, OPEN_ALWAYS));
    EXPECT_EQ(ERROR_ALREADY_EXISTS, GetLastError());
    std::filesystem::create_symlink(OnC("target"), OnC("link"));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOfOpen(R"(C:\link)", FILE_READ_ATTRIBUTES, OPEN_ALWAYS));
    EXPECT_FALSE(std::filesystem::exists(OnC("target")));
}

TEST_F(FileSecurityTest, FilesAreOnlyOpenedAsTheyAre) {
    Write("a.txt", "text");
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(CreateFileA(R"(C:\a.txt)", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr)));
}

TEST_F(FileSecurityTest, RemoveDirectoryTakesAnEmptyFolderOrALink) {
    std::filesystem::create_directories(OnC("folder/sub"));
    std::filesystem::create_symlink(OnC("folder"), OnC("junction"));
    Write("a.txt", "text");
    EXPECT_EQ(ERROR_DIR_NOT_EMPTY, ErrorOf(RemoveDirectoryA(R"(C:\folder)")));
    EXPECT_EQ(ERROR_DIRECTORY, ErrorOf(RemoveDirectoryA(R"(C:\a.txt)")));
    EXPECT_EQ(ERROR_FILE_NOT_FOUND, ErrorOf(RemoveDirectoryA(R"(C:\none)")));
    EXPECT_EQ(ERROR_ACCESS_DENIED, ErrorOf(DeleteFileA(R"(C:\junction)")));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOf(RemoveDirectoryA(R"(C:\junction)")));
    EXPECT_TRUE(std::filesystem::exists(OnC("folder/sub")));
    EXPECT_EQ(ERROR_SUCCESS, ErrorOf(RemoveDirectoryA(R"(C:\folder\sub)")));
}

TEST_F(FileSecurityTest, TheTokenNamesItsUser) {
    SetUser("alice");
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    alignas(TOKEN_USER) char buffer[128];
    DWORD size = 0;
    EXPECT_EQ(ERROR_INSUFFICIENT_BUFFER, ErrorOf(GetTokenInformation(token, TokenUser, nullptr, 0, &size)));
    ASSERT_TRUE(GetTokenInformation(token, TokenUser, buffer, size, &size));
    const std::string sid = winhost::SidOfUser("alice");
    EXPECT_EQ(0, memcmp(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, sid.data(), sid.size()));
    EXPECT_EQ(ERROR_NOT_SUPPORTED,
              ErrorOf(GetTokenInformation(token, TokenOwner, buffer, sizeof buffer, &size)));
    CloseHandle(token);
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE, &token));
    EXPECT_EQ(ERROR_ACCESS_DENIED,
              ErrorOf(GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size)));
    CloseHandle(token);
}

}  // namespace
