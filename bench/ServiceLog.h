// The service's logger behind two calls, so that a benchmark's file needs none of the platform's headers.
#pragma once

#include <string>

// Opens zel.log in a Linux folder.
bool OpenServiceLog(const std::string& folder);
// One INFO line with three arguments.
void WriteServiceLogLine(int number);
