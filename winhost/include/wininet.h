// WinINet: whether, and by what road, the PC is connected.
#pragma once

#include <windows.h>

#define INTERNET_CONNECTION_MODEM 0x01
#define INTERNET_CONNECTION_LAN 0x02
#define INTERNET_RAS_INSTALLED 0x10

// FALSE with ERROR_NOT_CONNECTED when there is no connection. Without a word of the PC's description it is
// the LAN, with INTERNET_RAS_INSTALLED, while an adapter that is up has a gateway.
BOOL WINAPI InternetGetConnectedState(LPDWORD lpdwFlags, DWORD dwReserved);
