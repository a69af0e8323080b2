// The settings of the installed service that neither the MSI nor sc.exe can make.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

inline constexpr const char* kServiceName = "ZELService";

// A stop may end the capture of the screen (27 seconds), the cloud connection (10), a driver (35), a request
// or two to firmware that does not answer (2 each), and waits for PowerShell.
inline constexpr DWORD kStopMilliseconds = 180'000;

// The service's command line gets `program` in quotes, the service restarts after a failure, and a shutdown
// of Windows waits for its stop. False with the last error.
bool ConfigureService(const std::string& program);
