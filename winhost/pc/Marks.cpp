#include "winhost/pc/Marks.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

#include "testbed/Numbers.h"

namespace winhost {
namespace {

constexpr std::string_view kPrefix = "WINHOST_";
constexpr std::string_view kRoot = "WINHOST_ROOT=";
constexpr std::string_view kSession = "WINHOST_SESSION=";
constexpr std::string_view kModule = "WINHOST_MODULE=";
constexpr std::string_view kDescriptionFile = "WINHOST_PC=";

void ParseVariable(std::string_view variable, Marks& marks) {
    const auto value = [&](std::string_view name) { return variable.substr(name.size()); };
    if (variable.starts_with(kRoot)) marks.root = value(kRoot);
    if (variable.starts_with(kSession)) marks.session = testbed::ParseNumber<uint32_t>(value(kSession));
    if (variable.starts_with(kModule)) marks.module = value(kModule);
    if (variable.starts_with(kDescriptionFile)) marks.descriptionFile = value(kDescriptionFile);
}

}  // namespace

Marks ParseMarks(const std::string& environment) {
    Marks marks;
    for (size_t begin = 0; begin < environment.size();) {
        const size_t end = std::min(environment.find('\0', begin), environment.size());
        ParseVariable(std::string_view(environment).substr(begin, end - begin), marks);
        begin = end + 1;
    }
    return marks;
}

const Marks& OwnMarks() {
    static const Marks& marks = *new Marks([] {
        Marks own;
        for (char** variable = environ; variable && *variable; ++variable)
            ParseVariable(*variable, own);
        return own;
    }());
    return marks;
}

std::vector<std::string> ToVariables(const Marks& marks) {
    std::vector<std::string> variables;
    const auto add = [&](std::string_view name, const std::string& value) {
        if (!value.empty()) variables.push_back(std::string(name) + value);
    };
    add(kRoot, marks.root);
    add(kSession, marks.session ? std::to_string(*marks.session) : "");
    add(kModule, marks.module);
    add(kDescriptionFile, marks.descriptionFile);
    return variables;
}

bool IsMark(const std::string& variable) {
    return variable.starts_with(kPrefix);
}

std::string RootMark(const PcDescription& pc) {
    const std::string root = pc.root.empty() ? "." : pc.root;
    std::error_code error;
    const auto canonical = std::filesystem::canonical(root, error);
    return error ? root : canonical.string();
}

void Join(const Marks& marks, PcDescription& description) {
    description.root = marks.root;
    description.controlSocket.clear();
    description.startedByScm = false;
    // What the program starts in its turn keeps the mark, but is another program.
    description.modulePath = getsid(0) == getpid() ? marks.module : std::string();
    description.environment.clear();
    for (char** variable = environ; variable && *variable; ++variable) {
        const std::string text = *variable;
        const size_t equals = text.find('=');
        if (equals == 0 || equals == std::string::npos || IsMark(text)) continue;
        description.environment[text.substr(0, equals)] = text.substr(equals + 1);
    }
}

}  // namespace winhost
