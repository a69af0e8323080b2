// The service's folders on a PC with a second user, alice.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <shlobj.h>

#include <fstream>
#include <iterator>

#include "base/ZELLogger.h"
#include "service/ZELService.h"
#include "tests/support/PcFixture.h"
#include "tests/support/ServiceLog.h"
#include "winhost/files/FileSecurity.h"

namespace fs = std::filesystem;

inline constexpr char kProgramData[] = R"(C:\ProgramData)";
inline constexpr char kMaker[] = R"(C:\ProgramData\Tarvix)";
inline constexpr char kWorking[] = R"(C:\ProgramData\Tarvix\Manageability)";
inline constexpr char kVictim[] = R"(C:\Windows)";

class WorkingFolder : public PcFixture {
  protected:
    void SetUp() override {
        PcFixture::SetUp();
        service = std::make_unique<ZELService>("");
        fs::create_directories(HostPath(kProgramData));
        fs::create_directories(HostPath(kVictim));
    }
    void TearDown() override {
        ZELLogger::Instance()->CloseLog();
        service.reset();
        PcFixture::TearDown();
    }

    static std::string In(const std::string& folder, const std::string& name) { return folder + "\\" + name; }
    template <class Action>
    static auto AsUser(const char* name, Action action) {
        Pc().Change([&](auto& pc) { pc.userName = name; });
        const auto result = action();
        Pc().Change([](auto& pc) { pc.userName = "SYSTEM"; });
        return result;
    }
    static bool Opens(const std::string& path, DWORD access, DWORD disposition = OPEN_EXISTING) {
        const HANDLE file = CreateFileA(path.c_str(), access, FILE_SHARE_READ, nullptr, disposition,
                                        FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        return file != INVALID_HANDLE_VALUE && CloseHandle(file);
    }
    static bool AliceOpens(const std::string& path, DWORD access, DWORD disposition = OPEN_EXISTING) {
        return AsUser("alice", [&] { return Opens(path, access, disposition); });
    }
    static void AliceCreates(const std::string& path) {
        ASSERT_TRUE(AliceOpens(path, GENERIC_READ, OPEN_ALWAYS)) << path;
    }
    static void AliceCreatesFolder(const std::string& path) {
        ASSERT_EQ(0, AsUser("alice", [&] { return SHCreateDirectoryExA(nullptr, path.c_str(), nullptr); }));
    }
    // Only in the folder itself; nothing in it inherits the change.
    static void Give(const std::string& path, const std::string& user, DWORD rights) {
        GiveSid(path, winhost::SidOfUser(user), rights);
    }
    static void GiveSid(const std::string& path, const std::string& sid, DWORD rights) {
        const std::string host = HostPath(path);
        winhost::FileSecurity security = winhost::SecurityOf(host);
        security.entries.push_back({ACCESS_ALLOWED_ACE_TYPE, 0, rights, sid});
        ASSERT_EQ(DWORD{ERROR_SUCCESS}, winhost::StoreSecurity(host, security));
    }
    // With the rights that folders below %PROGRAMDATA% inherit: every user may create files in them.
    static void AnEarlierVersionCreatesTheFolders() {
        ASSERT_EQ(0, SHCreateDirectoryExA(nullptr, kWorking, nullptr));
    }
    static void Write(const std::string& path, const std::string& text) {
        std::ofstream(HostPath(path)) << text;
    }
    static std::string Read(const fs::path& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(HostPath(path))); }
    // What lies in the folder with a name that begins so.
    static std::vector<fs::path> Entries(const std::string& folder, const std::string& prefix = "") {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(HostPath(folder)))
            if (entry.path().filename().string().starts_with(prefix)) found.push_back(entry.path());
        return found;
    }
    static std::vector<LogLine> Log() { return ReadLog(HostPath(In(kWorking, "zel.log"))); }
    static size_t Warnings(const std::string& text = "") {
        size_t count = 0;
        for (const LogLine& line : Log())
            if (line.level == "WARN" && line.message.find(text) != std::string::npos) ++count;
        return count;
    }

    static void ExpectThatUsersOnlyRead() {
        for (const std::string folder : {kMaker, kWorking}) {
            EXPECT_TRUE(AliceOpens(folder, GENERIC_READ));
            EXPECT_FALSE(AliceOpens(In(folder, "new.txt"), GENERIC_READ, OPEN_ALWAYS)) << folder;
            for (const DWORD right :
                 {DWORD{DELETE}, DWORD{WRITE_DAC}, DWORD{WRITE_OWNER}, DWORD{FILE_WRITE_ATTRIBUTES}})
                EXPECT_FALSE(AliceOpens(folder, right)) << folder << " " << right;
        }
        const std::string log = In(kWorking, "zel.log");
        EXPECT_TRUE(AliceOpens(log, GENERIC_READ));
        EXPECT_FALSE(AliceOpens(log, GENERIC_WRITE));
        EXPECT_FALSE(AsUser("alice", [&] { return DeleteFileA(log.c_str()); }));
    }
    void ExpectRepair(const std::string& text) {
        EXPECT_TRUE(service->InitializeLogging());
        EXPECT_EQ(1u, Warnings(text));
        EXPECT_EQ(1u, Warnings());
        ExpectThatUsersOnlyRead();
        EXPECT_TRUE(Entries(kVictim).empty());
    }

    std::unique_ptr<ZELService> service;
};
