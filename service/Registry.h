// Reading the registry.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

// Reads a text value, up to its first NUL. Takes one second for each attempt to open the key, at most ten,
// and one even when the first succeeds. False, with the reason in the log, when there is nothing to read.
bool ReadRegistryString(std::string& result, HKEY rootKey, const char* subkey, const char* valueName);

// The folder in which the installer says that it put the service. False, or an empty path, when it does not
// say.
bool GetInstallationPath(std::string& path, const char* valueName);
