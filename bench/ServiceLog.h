// The service's logger and the facts of its lines, so that a benchmark's main needs none of the platform's
// headers.
#pragma once

#include <cstddef>
#include <string>

// Opens zel.log in a Linux folder.
bool OpenServiceLog(const std::string& folder);
// One INFO line with three arguments.
void WriteServiceLogLine(int number);

// The process's private memory.
size_t PrivateMegabytes();
// The standard name of the PC's time zone, without its NUL; returns its length.
size_t TimeZoneName(char (&name)[128]);
