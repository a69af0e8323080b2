#include "companions/userconsent/Dialog.h"

#include <stdio.h>

#include <windows.h>

#include <array>

namespace {

constexpr int kYes = 0;
constexpr int kTimeOver = 5;

// Runs a command, appends its output to `output` and returns its exit code, or -1 when it cannot be started.
int Run(const std::string& command, std::string& output) {
    FILE* const stream = _popen(command.c_str(), "r");
    if (!stream) return -1;
    std::array<char, 256> block;
    while (fgets(block.data(), static_cast<int>(block.size()), stream))
        output += block.data();
    return _pclose(stream);
}

}  // namespace

bool DialogIsThere() {
    std::string version;
    return Run("zenity --version", version) == 0 && !version.empty();
}

std::optional<bool> AskByDialog(const Question& question) {
    std::string ignored;
    const int code = Run(
        "zenity --question --title=\"Remote control\" --timeout=" + std::to_string(question.Limit().count()) +
            " --text=\"An administrator asks to see and control this PC (request type " +
            std::to_string(question.type) + "). Do you agree?\"",
        ignored);
    if (code == kTimeOver) return {};
    return code == kYes;
}
