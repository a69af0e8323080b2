// Environments as Windows hands them about.
#pragma once

#include <string>
#include <vector>

namespace winhost {

// The variables "NAME=value" of the PC's environment, in the order in which Windows keeps them.
std::vector<std::string> PcEnvironment();

}  // namespace winhost
