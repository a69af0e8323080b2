// Files in the folder of the module that this is linked to. A test writes and reads them from Linux.
#pragma once

#include <optional>
#include <string>

// None when there is no such file.
std::optional<std::string> ReadBeside(const std::string& name);
// Any thread, and several programs at a time.
void AppendLineBeside(const std::string& name, const std::string& line);
