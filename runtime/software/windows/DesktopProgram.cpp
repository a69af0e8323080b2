#include "runtime/software/windows/DesktopProgram.h"

#include <sddl.h>
#include <wtsapi32.h>

#include <vector>

#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

namespace {

UniqueHandle OwnToken(DWORD access) {
    HANDLE token = nullptr;
    return UniqueHandle(OpenProcessToken(GetCurrentProcess(), access, &token) ? token : nullptr);
}

// A copy of this process's token in another session, which only a service can make.
UniqueHandle OwnTokenIn(DWORD session) {
    const UniqueHandle own = OwnToken(TOKEN_DUPLICATE | TOKEN_QUERY);
    HANDLE copy = nullptr;
    if (!own ||
        !DuplicateTokenEx(own.get(), MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary, &copy)) {
        return nullptr;
    }
    UniqueHandle result(copy);
    if (!SetTokenInformation(result.get(), TokenSessionId, &session, sizeof session)) {
        return nullptr;
    }
    return result;
}

UniqueHandle UserToken(DWORD session) {
    HANDLE token = nullptr;
    return UniqueHandle(WTSQueryUserToken(session, &token) ? token : nullptr);
}

// Kills what is in it when the last handle is closed, also when this process dies.
UniqueHandle NewJob() {
    UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (job &&
        !SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits)) {
        job.reset();
    }
    return job;
}

}  // namespace

DWORD DesktopProgram::ConsoleSession() {
    return WTSGetActiveConsoleSessionId();
}

DWORD DesktopProgram::OwnSession() {
    DWORD session = 0;
    return ProcessIdToSessionId(GetCurrentProcessId(), &session) ? session : 0;
}

DesktopProgram::DesktopProgram(DWORD session, Rights rights) {
    if (session == OwnSession()) {
        return;
    }
    if (rights == Rights::User) {
        m_token = UserToken(session);
    }
    if (!m_token) {
        m_token = OwnTokenIn(session);
    }
    if (!m_token) {
        TraceLine(LUX_TRACE_WARNING,
                  "No token for session %lu (error %lu); the capture stays in this session", session,
                  GetLastError());
    }
}

std::wstring DesktopProgram::User() const {
    const UniqueHandle own = m_token ? nullptr : OwnToken(TOKEN_QUERY);
    HANDLE const token = m_token ? m_token.get() : own.get();
    DWORD size = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &size);
    std::vector<std::byte> bytes(size);
    wchar_t* text = nullptr;
    if (!GetTokenInformation(token, TokenUser, bytes.data(), size, &size) ||
        !ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(bytes.data())->User.Sid, &text)) {
        return {};
    }
    const UniqueLocal<wchar_t> owner(text);
    return text;
}

DWORD DesktopProgram::Create(const std::wstring& program, std::wstring commandLine,
                             PROCESS_INFORMATION& created) {
    std::wstring desktop = L"winsta0\\default";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.lpDesktop = desktop.data();
    const DWORD flags = CREATE_SUSPENDED | CREATE_NO_WINDOW;
    if (m_token && CreateProcessAsUserW(m_token.get(), program.c_str(), commandLine.data(), nullptr, nullptr,
                                        FALSE, flags, nullptr, nullptr, &startup, &created)) {
        return ERROR_SUCCESS;
    }
    if (m_token) {
        TraceLine(LUX_TRACE_WARNING,
                  "The capture program cannot be started in the user's session (error %lu)", GetLastError());
        m_token.reset();
    }
    return CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, flags, nullptr,
                          nullptr, &startup, &created)
               ? ERROR_SUCCESS
               : GetLastError();
}

DWORD DesktopProgram::Start(const std::wstring& program, const std::wstring& arguments) {
    PROCESS_INFORMATION created{};
    const DWORD error = Create(program, L"\"" + program + L"\" " + arguments, created);
    if (error != ERROR_SUCCESS) {
        return error;
    }
    m_process.reset(created.hProcess);
    const UniqueHandle thread(created.hThread);
    m_job = NewJob();
    if (!m_job || !AssignProcessToJobObject(m_job.get(), m_process.get())) {
        // It ends by itself when nothing asks it for a picture.
        TraceLine(LUX_TRACE_WARNING, "The capture program is in no job of its own (error %lu)",
                  GetLastError());
    }
    return ResumeThread(thread.get()) == static_cast<DWORD>(-1) ? GetLastError() : ERROR_SUCCESS;
}

}  // namespace luxrt
