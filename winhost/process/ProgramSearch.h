// Where the programs of the PC are searched for.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace winhost {

// The Windows path of the file of this name in the folder, whatever the case of its letters.
std::optional<std::string> FileIn(const std::string& folder, const std::string& name);

// The folders of the PC's variable PATH, or of a fresh Windows when it has none.
std::vector<std::string> SearchPath();

// Where CreateProcess searches for a program that is named without a folder: the folder of the caller's
// program, those of the system, and SearchPath. The current folder, which Windows searches behind the first
// one, is the root of the PC and has no programs.
std::vector<std::string> ProgramFolders();

}  // namespace winhost
