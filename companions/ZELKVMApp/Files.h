// The files by which the agent is led and in which it tells what it does. All paths are Windows paths.
#pragma once

#include <string>

// PROGRAMDATA\Tarvix\Manageability; empty without the variable.
std::string WorkingFolder();
// The folder of this executable, with the separator behind it.
std::string OwnFolder();

// The first word of a file; empty when there is none.
std::string FirstWord(const std::string& path);

// Appends a line with the time and this process's id. The file is open only so long, because the service
// deletes it after the session.
void AppendLine(const std::string& path, const std::string& text);
