// Starting programs, in the caller's session and in others.
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <winbase.h>

#include "testbed/Utf8.h"
#include "winhost/core/Gate.h"
#include "winhost/core/Results.h"
#include "winhost/pc/Pc.h"
#include "winhost/power/Privileges.h"
#include "winhost/process/EnvironmentBlock.h"
#include "winhost/process/ProcessObject.h"
#include "winhost/process/ProgramSearch.h"
#include "winhost/process/Spawn.h"
#include "winhost/process/Token.h"

using winhost::Fail;
using winhost::HandleTable;
using winhost::Pc;

namespace {

// ---- what is started ----

// The Windows path of the program: the text in quotes that the command line begins with, when it is a whole
// path with the file's ending.
std::optional<std::string> ProgramOf(const std::string& commandLine) {
    const size_t end = commandLine.find('"', 1);
    if (!commandLine.starts_with('"') || end == std::string::npos) return std::nullopt;
    std::string program = commandLine.substr(1, end - 1);
    const size_t name = program.find_last_of('\\') + 1;
    if (name == 0 || program.find('.', name) == std::string::npos) return std::nullopt;
    return program;
}

// The file of this name in the folders of programs; the name itself when it is in none.
std::string SearchFolders(std::string name) {
    if (name.find('.') == std::string::npos) name += ".exe";
    for (const std::string& folder : winhost::ProgramFolders())
        if (const auto file = winhost::FileIn(folder, name)) return *file;
    return name;
}

// The program of a command line that doesn't begin with a quote: the first file that a part of it up to a
// blank names. Without any, the first such part, for the error.
std::string SearchProgram(const std::string& commandLine) {
    std::string first;
    for (size_t end = 0; end != std::string::npos;) {
        end = commandLine.find(' ', end + 1);
        std::string program = commandLine.substr(0, end);
        if (program.find('.', program.find_last_of('\\') + 1) == std::string::npos) program += ".exe";
        std::error_code ignored;
        if (std::filesystem::is_regular_file(Pc::Instance().HostPath(program), ignored)) return program;
        if (first.empty()) first = program;
    }
    return first;
}

std::vector<std::string> VariablesOf(const WCHAR* block) {
    if (!block) return winhost::PcEnvironment();
    std::vector<std::string> variables;
    for (std::wstring text; !(text = block).empty(); block += text.size() + 1)
        variables.push_back(testbed::ToUtf8(text));
    return variables;
}

// ---- the call ----

// 0, or what is wrong with the token or with the caller's privileges.
DWORD CheckToken(const winhost::Token* token) {
    if (!token) return ERROR_INVALID_HANDLE;
    if (!token->Allows(TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_ASSIGN_PRIMARY)) return ERROR_ACCESS_DENIED;
    for (const char* needed : {SE_INCREASE_QUOTA_NAME, SE_ASSIGNPRIMARYTOKEN_NAME})
        if (!winhost::HoldsPrivilege(winhost::PrivilegeByName(needed))) return ERROR_PRIVILEGE_NOT_HELD;
    return ERROR_SUCCESS;
}

bool IsSupported(BOOL inheritHandles, DWORD flags, const void* environment, const STARTUPINFOA& startup) {
    const bool detached = (flags & ~DWORD{CREATE_UNICODE_ENVIRONMENT}) == DETACHED_PROCESS;
    const bool narrow = environment && !(flags & CREATE_UNICODE_ENVIRONMENT);
    return detached && !narrow && !inheritHandles && !(startup.dwFlags & STARTF_USESTDHANDLES);
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

struct Launch {
    std::string program, commandLine;  // the Windows path, and what the program gets
    std::vector<std::string> variables;
    DWORD session = 0, flags = 0;
    bool environment = false;
};

BOOL Start(const Launch& launch, const STARTUPINFOA& startup, PROCESS_INFORMATION& information) {
    const winhost::SpawnRequest request =
        winhost::RequestFor(launch.program, launch.commandLine, launch.variables, launch.session);
    winhost::ProcessEntry entry;
    entry.name = launch.program.substr(launch.program.find_last_of('\\') + 1);
    entry.session = launch.session;
    if (const DWORD error = winhost::Spawn(request, entry)) return Fail(error);
    Pc::Instance().Record(winhost::ProcessLaunch{launch.commandLine,
                                                 startup.lpDesktop ? startup.lpDesktop : "", launch.session,
                                                 launch.flags, launch.environment, entry.id});
    return GiveHandles(entry, information);
}

}  // namespace

BOOL CreateProcessA(LPCSTR applicationName, LPSTR commandLine, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES,
                    BOOL inheritHandles, DWORD flags, LPVOID environment, LPCSTR currentDirectory,
                    LPSTARTUPINFOA startup, LPPROCESS_INFORMATION information) {
    WINHOST_GATE("CreateProcessA", FALSE);
    if ((!applicationName && !commandLine) || !startup || !information) return Fail(ERROR_INVALID_PARAMETER);
    if (flags & ~DWORD{DETACHED_PROCESS} || environment || currentDirectory ||
        startup->dwFlags & STARTF_USESTDHANDLES)
        return Fail(ERROR_NOT_SUPPORTED);
    Launch launch;
    launch.flags = flags;
    launch.commandLine = commandLine ? commandLine : "\"" + std::string(applicationName) + "\"";
    if (applicationName) {
        launch.program = applicationName;
    } else if (launch.commandLine.starts_with('"')) {
        launch.program = ProgramOf(launch.commandLine).value_or("");
    } else if (const std::string word = launch.commandLine.substr(0, launch.commandLine.find(' '));
               word.find('\\') == std::string::npos) {
        launch.program = SearchFolders(word);
        if (launch.program.find('\\') == std::string::npos) return Fail(ERROR_FILE_NOT_FOUND);
    } else {
        launch.program = SearchProgram(launch.commandLine);
    }
    // The application is no name that is searched for.
    if (launch.program.find('\\') == std::string::npos) return Fail(ERROR_NOT_SUPPORTED);
    launch.variables = winhost::PcEnvironment();
    launch.session = winhost::OwnSession();
    if (!Start(launch, *startup, *information)) return FALSE;
    // No handle of this library can be inherited. On Windows a socket can, unless its owner says otherwise.
    Pc::Instance().Record(winhost::CallArgument{"CreateProcessA", "bInheritHandles", inheritHandles != 0});
    Pc::Instance().Record(winhost::CallArgument{"CreateProcessA", "wShowWindow", startup->wShowWindow});
    return TRUE;
}

BOOL CreateProcessAsUserA(HANDLE handle, LPCSTR applicationName, LPSTR commandLine, LPSECURITY_ATTRIBUTES,
                          LPSECURITY_ATTRIBUTES, BOOL inheritHandles, DWORD flags, LPVOID environment,
                          LPCSTR currentDirectory, LPSTARTUPINFOA startup,
                          LPPROCESS_INFORMATION information) {
    WINHOST_GATE("CreateProcessAsUserA", FALSE);
    if ((!applicationName && !commandLine) || !startup || !information) return Fail(ERROR_INVALID_PARAMETER);
    const auto program = applicationName ? std::nullopt : ProgramOf(commandLine);
    if (!program || currentDirectory || !IsSupported(inheritHandles, flags, environment, *startup))
        return Fail(ERROR_NOT_SUPPORTED);
    const auto token = HandleTable::Instance().Find<winhost::Token>(handle);
    if (const DWORD error = CheckToken(token.get())) return Fail(error);

    return Start({*program, commandLine, VariablesOf(static_cast<const WCHAR*>(environment)),
                  token->Session(), flags, environment != nullptr},
                 *startup, *information);
}
