// A PC on which programs are started, as a service does it: with the token of the console's logon program.
#pragma once

#include <tlhelp32.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "winhost/process/ProcessList.h"
#include "winhost/tests/PcFixture.h"

class LaunchFixture : public PcFixture {
  protected:
    static constexpr DWORD kFlags = DETACHED_PROCESS | CREATE_UNICODE_ENVIRONMENT;

    ~LaunchFixture() override {
        for (const auto& entry : winhost::ListProcesses())
            if (!entry.described && entry.id != GetCurrentProcessId()) {
                kill(static_cast<pid_t>(entry.id), SIGKILL);
                AwaitReaped(entry.id);
            }
    }

    // C:\<name>, run by the shell with the root as its folder.
    void WriteScript(const std::string& name, const std::string& lines) const {
        Write(name, "#!/bin/sh\n" + lines + "\n");
        std::filesystem::permissions(OnC(name), std::filesystem::perms::owner_all);
    }
    // C:\<name>, which stays until it is ended.
    void WriteSleeper(const std::string& name) const {
        std::filesystem::create_directories(OnC(name).parent_path());
        std::filesystem::create_symlink("/bin/sleep", OnC(name));
    }

    static DWORD IdOf(const std::string& name) {
        for (const auto& entry : winhost::ListProcesses())
            if (entry.name == name) return entry.id;
        return 0;
    }
    static std::vector<DWORD> IdsOf(const std::string& name) {
        std::vector<DWORD> ids;
        for (const auto& entry : winhost::ListProcesses())
            if (entry.name == name) ids.push_back(entry.id);
        return ids;
    }

    // 9 when the process has none.
    static DWORD SessionOf(DWORD id) {
        DWORD session = 9;
        EXPECT_TRUE(ProcessIdToSessionId(id, &session));
        return session;
    }

    // A primary token of the console's logon program, for its session.
    static HANDLE LogonToken(DWORD access = TOKEN_ALL_ACCESS) {
        const HANDLE process = OpenProcess(PROCESS_ALL_ACCESS, FALSE, IdOf("winlogon.exe"));
        HANDLE own = nullptr, token = nullptr;
        EXPECT_TRUE(OpenProcessToken(process, TOKEN_ALL_ACCESS, &own));
        EXPECT_TRUE(DuplicateTokenEx(own, access, nullptr, SecurityImpersonation, TokenPrimary, &token));
        CloseHandle(own);
        CloseHandle(process);
        return token;
    }

    // Owns the handles.
    struct Started {
        Started() = default;
        Started(Started&& other) noexcept
            : result(other.result), error(other.error), information(std::exchange(other.information, {})) {}
        ~Started() { Close(); }
        void Close() {
            for (HANDLE* handle : {&information.hProcess, &information.hThread}) {
                if (*handle) {
                    EXPECT_TRUE(CloseHandle(std::exchange(*handle, nullptr)));
                }
            }
        }
        DWORD Id() const { return information.dwProcessId; }

        BOOL result = FALSE;
        DWORD error = 0;
        PROCESS_INFORMATION information{};
    };
    static Started StartWith(HANDLE token, const std::string& command, DWORD flags = kFlags,
                             void* environment = nullptr) {
        std::string line = command;
        char desktop[] = "Winsta0\\Default";
        STARTUPINFOA startup{};
        startup.cb = sizeof startup;
        startup.lpDesktop = desktop;
        Started started;
        SetLastError(0);
        started.result = CreateProcessAsUserA(token, nullptr, line.data(), nullptr, nullptr, FALSE, flags,
                                              environment, nullptr, &startup, &started.information);
        started.error = GetLastError();
        return started;
    }
    static Started Start(const std::string& command, DWORD flags = kFlags, void* environment = nullptr) {
        const HANDLE token = LogonToken();
        Started started = StartWith(token, command, flags, environment);
        CloseHandle(token);
        return started;
    }
    static DWORD ErrorOfStart(const std::string& command, DWORD flags = kFlags) {
        const Started started = Start(command, flags);
        EXPECT_FALSE(started.result) << command;
        return started.error;
    }
    // Starts it and waits for its end.
    static void Run(const std::string& command, DWORD flags = kFlags, void* environment = nullptr) {
        const Started started = Start(command, flags, environment);
        ASSERT_TRUE(started.result) << command << ": error " << started.error;
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(started.information.hProcess, INFINITE));
    }

    static void End(HANDLE process) {
        EXPECT_TRUE(TerminateProcess(process, 9));
        EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(process, INFINITE));
    }
    // Until this process has no child of that id, not even a dead one.
    static bool AwaitReaped(DWORD id) {
        return Eventually([id] {
            siginfo_t info{};
            return waitid(P_PID, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0 && errno == ECHILD;
        });
    }
};
