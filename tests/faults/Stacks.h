// Where the threads of this process stand.
#pragma once

#include <string>
#include <vector>

// The functions that the calling thread is in, innermost first, without their parameters. Functions that only
// their own file knows have no name.
std::vector<std::string> FunctionsOfThisThread();
// Writes the stacks of all threads to stderr. They go on afterwards.
void PrintStacks();
// From now on a SIGUSR1 prints the stacks and ends the process with this exit code.
void PrintStacksOnSignal(int exitCode);
