// Where the programs lie that the service starts on the user's desktop.
#pragma once

#include <string>

// Returns the folder without a separator at its end: the service's own, or of a packaged service the working
// folder. Returns an empty text and logs a line when there is none that users cannot change. Any thread.
std::string GetKVMAgentFolder();
