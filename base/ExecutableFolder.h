// Where the service's own program lies.
#pragma once

#include <string>

// The folder of the executable, without a separator at its end. Where its path has no separator, `complaint`
// goes to the log and the result is empty. Any thread.
std::string ExecutableFolder(const char* complaint);
