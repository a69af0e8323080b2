// Reading the registry.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

// Reads a text value, up to its first NUL. Each attempt to open the key takes one second, the successful one
// too; there are at most ten attempts. Returns false, with the reason in the log, when there is nothing to
// read.
bool ReadRegistryString(std::string& result, HKEY rootKey, const char* subkey, const char* valueName);

// Reads the folder in which the installer has put the service. Returns false, or an empty path, when the
// registry does not contain it.
bool GetInstallationPath(std::string& path, const char* valueName);
