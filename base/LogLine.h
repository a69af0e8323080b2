// The format of one line of the log.
#pragma once

#include <string_view>

#include "base/FixedText.h"

// Reads process, memory, thread and time, and assembles the whole line, at most 1024 bytes with its line
// break. Removes the line breaks of the message and cuts the message when the line is too long; the suffix is
// never cut.
void AssembleLogLine(FixedText<1025>& line, const char* tag, const char* message, std::string_view level);
