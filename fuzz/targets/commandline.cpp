// Command lines as the programs that the service starts get them, and as the command processor runs them.
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <vector>

#include "fuzz/Input.h"
#include "fuzz/support/Wire.h"
#include "winhost/pc/Pc.h"
#include "winhost/process/CommandLine.h"

namespace {

// As a careful caller writes an argument.
std::string Quoted(const std::string& argument) {
    std::string text = "\"";
    size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '"') text.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text + std::string(backslashes, '\\') + '"';
}

// Its drive has no file.
struct PcWithoutPrograms {
    PcWithoutPrograms() {
        winhost::PcDescription pc;
        pc.root = fuzz::SocketFolder() + "/pc";
        winhost::Pc::Instance().Reset(pc);
    }
    static bool HasFiles() { return !std::filesystem::is_empty(winhost::Pc::Instance().HostPath("C:\\")); }
};

// Whatever the command is, it runs nothing of this machine and creates no file.
void RunCommand(const std::string& line) {
    static const PcWithoutPrograms pc;
    const int result = system(line.c_str());
    fuzz::Require(result == 1 || result == -1, "no program is found");
    fuzz::Require(!PcWithoutPrograms::HasFiles(), "no file is created");
}

}  // namespace

FUZZ_TARGET(commandline) {
    const std::string line = fuzz::TextOf(input);
    RunCommand(line);
    const std::vector<std::string> arguments = winhost::SplitArguments(line);
    fuzz::Require(!arguments.empty(), "there is always a program");
    size_t size = 0;
    for (const std::string& argument : arguments)
        size += argument.size();
    fuzz::Require(size <= line.size(), "nothing is made up");

    std::string again = "program";
    for (size_t i = 1; i < arguments.size(); ++i)
        again += " " + Quoted(arguments[i]);
    const std::vector<std::string> second = winhost::SplitArguments(again);
    fuzz::Require(
        std::vector(second.begin() + 1, second.end()) == std::vector(arguments.begin() + 1, arguments.end()),
        "arguments in quotes arrive as they are");
}
