// Command lines by Windows' rules.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace winhost {

// What main of a program gets, as the C runtime splits it. In the first item a quote only holds blanks
// together; behind it backslashes before a quote count for half, an odd one makes the quote a letter, and two
// quotes within quotes are one.
std::vector<std::string> SplitArguments(std::string_view commandLine);

}  // namespace winhost
