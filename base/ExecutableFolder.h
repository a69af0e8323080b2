// The folder of the service's own program.
#pragma once

#include <string>

// Returns the folder of the executable, without a separator at its end. When its path has no separator, logs
// `complaint`, unless it is null, and returns an empty text. Any thread.
std::string ExecutableFolder(const char* complaint = nullptr);
