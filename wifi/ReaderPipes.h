// The pipes of WiFiSyncDataReader, which the service and the program share.
#pragma once

inline constexpr char kWiFiPipeName[] = "\\\\.\\pipe\\WifiPipe";
inline constexpr char kBootModePipeName[] = "\\\\.\\pipe\\BootModePipe";
// The argument with which the program reads the boot mode.
inline constexpr char kBootModeArgument[] = "GetBootMode";
