// Starting programs in the PC's sessions.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <strings.h>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "testbed/Utf8.h"
#include "winhost/pc/Marks.h"
#include "winhost/pc/Pc.h"
#include "winhost/power/Privileges.h"
#include "winhost/process/CommandLine.h"
#include "winhost/process/EnvironmentBlock.h"
#include "winhost/process/ProcessObject.h"
#include "winhost/process/Spawn.h"
#include "winhost/process/Token.h"

using winhost::HandleTable;
using winhost::Pc;

namespace {

namespace fs = std::filesystem;

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

// ---- which program ----

bool HasFolder(const std::string& path) {
    return path.find_first_of("\\/:") != std::string::npos;
}

bool HasEnding(const std::string& path) {
    const size_t separator = path.find_last_of("\\/");
    return path.find('.', separator == std::string::npos ? 0 : separator) != std::string::npos;
}

bool IsFile(const std::string& windowsPath) {
    std::error_code ignored;
    return fs::is_regular_file(Pc::Instance().HostPath(windowsPath), ignored);
}

std::vector<std::string> SearchedFolders() {
    const std::string own = winhost::OwnPath();
    std::vector<std::string> folders{own.substr(0, own.find_last_of("\\/")), ".", R"(C:\Windows\System32)",
                                     R"(C:\Windows)"};
    for (const auto& [name, value] : Pc::Instance().Description().environment) {
        if (strcasecmp(name.c_str(), "PATH") != 0) continue;
        for (size_t begin = 0; begin <= value.size();) {
            const size_t end = std::min(value.find(';', begin), value.size());
            if (end != begin) folders.push_back(value.substr(begin, end - begin));
            begin = end + 1;
        }
    }
    return folders;
}

// Its Windows path, when it is there.
std::optional<std::string> Locate(std::string program) {
    if (!HasEnding(program)) program += ".exe";
    if (HasFolder(program)) return IsFile(program) ? std::optional(program) : std::nullopt;
    for (const std::string& folder : SearchedFolders())
        if (const std::string path = folder + "\\" + program; IsFile(path)) return path;
    return std::nullopt;
}

// The Windows path of the program that is meant; of one that isn't there the path that was looked for last.
std::string ProgramOf(LPCSTR applicationName, const std::string& commandLine) {
    if (applicationName) return applicationName;
    const std::vector<std::string> candidates = winhost::ProgramCandidates(commandLine);
    for (const std::string& candidate : candidates)
        if (const auto path = Locate(candidate)) return *path;
    if (candidates.empty()) return "";
    return HasEnding(candidates.back()) ? candidates.back() : candidates.back() + ".exe";
}

// ---- what it gets ----

std::vector<std::string> VariablesOf(LPVOID block, DWORD flags) {
    if (!block) return winhost::PcEnvironment();
    if (!(flags & CREATE_UNICODE_ENVIRONMENT)) return winhost::TextsOfBlock(static_cast<const char*>(block));
    std::vector<std::string> variables;
    for (const std::wstring& text : winhost::TextsOfBlock(static_cast<const WCHAR*>(block)))
        variables.push_back(testbed::ToUtf8(text));
    return variables;
}

std::vector<std::string> Marked(std::vector<std::string> variables, const winhost::Marks& marks) {
    std::erase_if(variables, winhost::IsMark);
    for (const std::string& mark : winhost::ToVariables(marks))
        variables.push_back(mark);
    return variables;
}

// ---- the call ----

// 0, or what is wrong with the token or with the caller's privileges.
DWORD CheckToken(const winhost::Token* token) {
    if (!token) return ERROR_INVALID_HANDLE;
    if (!token->Allows(TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY)) return ERROR_ACCESS_DENIED;
    if (token->Type() != TokenPrimary) return ERROR_BAD_TOKEN_TYPE;
    for (const char* needed : {SE_INCREASE_QUOTA_NAME, SE_ASSIGNPRIMARYTOKEN_NAME})
        if (!winhost::HoldsPrivilege(winhost::PrivilegeByName(needed))) return ERROR_PRIVILEGE_NOT_HELD;
    return ERROR_SUCCESS;
}

bool IsSupported(BOOL inheritHandles, DWORD flags, const STARTUPINFOA& startup) {
    const bool detached = (flags & ~DWORD{CREATE_UNICODE_ENVIRONMENT}) == DETACHED_PROCESS;
    return detached && !inheritHandles && !(startup.dwFlags & STARTF_USESTDHANDLES);
}

BOOL GiveHandles(const winhost::ProcessEntry& entry, PROCESS_INFORMATION& information) {
    HandleTable& table = HandleTable::Instance();
    const auto process = std::make_shared<winhost::Process>(entry, PROCESS_ALL_ACCESS);
    information.dwProcessId = information.dwThreadId = entry.id;
    information.hProcess = table.Add(process);
    information.hThread = table.Add(std::make_shared<winhost::ProcessEnd>(entry));
    if (information.hProcess && information.hThread) return TRUE;
    process->Terminate();
    if (information.hProcess) table.CloseKernelObject(information.hProcess);
    return Fail(ERROR_NO_SYSTEM_RESOURCES);
}

}  // namespace

BOOL CreateProcessAsUserA(HANDLE handle, LPCSTR applicationName, LPSTR commandLine, LPSECURITY_ATTRIBUTES,
                          LPSECURITY_ATTRIBUTES, BOOL inheritHandles, DWORD flags, LPVOID environment,
                          LPCSTR currentDirectory, LPSTARTUPINFOA startup,
                          LPPROCESS_INFORMATION information) {
    WINHOST_GATE("CreateProcessAsUserA", FALSE);
    if ((!applicationName && !commandLine) || !startup || !information) return Fail(ERROR_INVALID_PARAMETER);
    if (!IsSupported(inheritHandles, flags, *startup)) return Fail(ERROR_NOT_SUPPORTED);
    const auto token = HandleTable::Instance().Find<winhost::Token>(handle);
    if (const DWORD error = CheckToken(token.get())) return Fail(error);

    const std::string line = commandLine ? commandLine : "\"" + std::string(applicationName) + "\"";
    const std::string program = ProgramOf(applicationName, line);
    if (program.empty()) return Fail(ERROR_FILE_NOT_FOUND);
    winhost::SpawnRequest request;
    request.program = fs::absolute(Pc::Instance().HostPath(program)).string();
    request.arguments = winhost::SplitArguments(line);
    request.environment = Marked(VariablesOf(environment, flags),
                                 {winhost::RootMark(Pc::Instance().Description()), token->Session(), program,
                                  Pc::Instance().DescriptionFile()});
    if (currentDirectory) request.folder = fs::absolute(Pc::Instance().HostPath(currentDirectory)).string();
    winhost::ProcessEntry entry;
    entry.name = program.substr(program.find_last_of("\\/") + 1);
    entry.session = token->Session();
    if (const DWORD error = winhost::Spawn(request, entry)) return Fail(error);
    Pc::Instance().Record(winhost::ProcessLaunch{line, startup->lpDesktop ? startup->lpDesktop : "",
                                                 token->Session(), flags, environment != nullptr, entry.id});
    return GiveHandles(entry, *information);
}
