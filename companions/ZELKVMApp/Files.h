// Access to the files that control the agent and to its log. All paths are Windows paths.
#pragma once

#include <string>

// Returns PROGRAMDATA\Tarvix\Manageability, or an empty text when the variable is not set.
std::string WorkingFolder();
// Returns the folder of this executable with a trailing separator.
std::string OwnFolder();

// Returns the first word of a file, or an empty text when there is none.
std::string FirstWord(const std::string& path);

// Appends a line with the time and this process's id. The file is open only during the call, because the
// service deletes it after the session.
void AppendLine(const std::string& path, const std::string& text);
