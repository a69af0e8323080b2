// Commands as the command processor of the PC runs them.
#include <stdlib.h>
#include <strings.h>

#include <cctype>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

#include <winbase.h>

#include "winhost/core/Gate.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/EnvironmentBlock.h"
#include "winhost/process/ProgramSearch.h"
#include "winhost/process/Spawn.h"

namespace {

constexpr int kNotRun = 1;
constexpr const char* kEndings[] = {"", ".com", ".exe", ".bat", ".cmd"};

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// ---- the line ----

// Takes a redirection from `text`, which begins with its sign. False for one that does not lead to nul or to
// another stream.
bool TakeRedirection(std::string_view& text) {
    const auto skip = [&text](auto isSkipped) {
        while (!text.empty() && isSkipped(text.front()))
            text.remove_prefix(1);
    };
    skip([](char c) { return c == '>'; });
    if (text.starts_with('&')) {
        text.remove_prefix(1);
        const bool isStream = text.starts_with('1') || text.starts_with('2');
        if (isStream) text.remove_prefix(1);
        return isStream;
    }
    skip(IsBlank);
    const std::string target(text.substr(0, text.find_first_of(" \t>")));
    text.remove_prefix(target.size());
    return strcasecmp(target.c_str(), "nul") == 0;
}

// The line without its redirections. Nothing when it has a feature that this command processor lacks.
std::optional<std::string> WithoutRedirections(std::string_view text) {
    constexpr std::string_view kSpecial = "&|<^()\r\n";
    std::string line;
    bool quoted = false;
    while (!text.empty()) {
        const char c = text.front();
        if (c == '"') quoted = !quoted;
        if (c == '%' || (!quoted && kSpecial.find(c) != std::string_view::npos)) return std::nullopt;
        if (c != '>' || quoted) {
            line.push_back(c);
            text.remove_prefix(1);
            continue;
        }
        // The number of a stream belongs to the redirection.
        const size_t size = line.size();
        const bool isNumber = size > 0 && isdigit(static_cast<unsigned char>(line.back()));
        if (isNumber && (size == 1 || IsBlank(line[size - 2]))) line.pop_back();
        if (!TakeRedirection(text)) return std::nullopt;
    }
    while (!line.empty() && IsBlank(line.back()))
        line.pop_back();
    line.erase(0, line.find_first_not_of(" \t"));
    if (line.empty() || line.front() == '"') return std::nullopt;
    return line;
}

// ---- the program ----

std::optional<std::string> ProgramIn(const std::string& folder, const std::string& name) {
    const bool hasEnding = name.find('.') != std::string::npos;
    for (const char* ending : kEndings) {
        // A file without an ending is no program.
        if (!hasEnding && !*ending) continue;
        if (auto file = winhost::FileIn(folder, name + ending)) return file;
    }
    return std::nullopt;
}

std::optional<std::string> FindProgram(const std::string& name) {
    const size_t separator = name.find_last_of("\\/");
    if (separator != std::string::npos)
        return ProgramIn(name.substr(0, separator), name.substr(separator + 1));
    for (const std::string& folder : winhost::SearchPath())
        if (auto program = ProgramIn(folder, name)) return program;
    return std::nullopt;
}

}  // namespace

int system(const char* command) {
    WINHOST_GATE("system", -1);
    if (!command) return 1;
    winhost::Pc::Instance().Record(winhost::SystemCommand{command});
    const auto line = WithoutRedirections(command);
    if (!line) {
        errno = EINVAL;
        return -1;
    }
    const auto program = FindProgram(line->substr(0, line->find_first_of(" \t")));
    if (!program) return kNotRun;
    int exitCode = 0;
    const DWORD error = winhost::RunToEnd(
        winhost::RequestFor(*program, *line, winhost::PcEnvironment(), winhost::OwnSession()), exitCode);
    if (error == ERROR_SUCCESS) return exitCode;
    if (error == ERROR_BAD_EXE_FORMAT) return kNotRun;
    errno = ENOMEM;
    return -1;
}
