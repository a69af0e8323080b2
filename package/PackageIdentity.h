// The package's texts as the system has them.
#pragma once

#include <string>

// Returns an empty text without a package, and when the system does not return the name.
std::string PackageFamilyName();
