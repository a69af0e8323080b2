// Connections to the firmware's address.
#pragma once

#include <string>

namespace winhost {

// A connected stream socket, or -1. The address is "unix:/path" or "tcp:127.0.0.1:4711".
int ConnectLink(const std::string& address);

}  // namespace winhost
