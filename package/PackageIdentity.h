// The package's texts as the system has them.
#pragma once

#include <string>

// Empty without a package, or when the system does not tell it.
std::string PackageFamilyName();
